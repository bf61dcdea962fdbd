// The few operations on WCHAR strings that the service needs, and the way between UTF-16 and ANSI.
//
// The C library's wide functions count characters of another width off Windows, so product code
// uses these. Any thread; nothing here keeps state or takes memory.
#pragma once

#include <windows.h>

#include <cstddef>

// Length in characters without the terminating zero.
std::size_t WideLength(const WCHAR* text);

// Exact comparison, character by character.
bool WideEquals(const WCHAR* left, const WCHAR* right);

// Comparison that takes A to Z for a to z; all other characters have no case.
bool WideEqualsIgnoringCase(const WCHAR* left, const WCHAR* right);

// Converts a terminated string from the thread's ANSI code page to UTF-16. True when out holds the
// whole text with its terminating zero within capacityChars characters; otherwise out is empty.
bool WidenAnsi(const char* text, WCHAR* out, std::size_t capacityChars);

// Converts a terminated UTF-16 string to the thread's ANSI code page. True when out holds the whole
// text with its terminating zero within capacityBytes bytes; otherwise out is empty. A character
// that the code page lacks becomes the code page's substitute.
bool NarrowToAnsi(const WCHAR* text, char* out, std::size_t capacityBytes);
