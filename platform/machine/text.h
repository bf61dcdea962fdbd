// Text between the three encodings that meet here: UTF-16 of the calls, the ANSI code page of the
// machine (Windows-1252), and UTF-8 of the host's file names and of what the simulator prints.
#pragma once

#include <string>
#include <string_view>

namespace platform {

// Every byte of the code page stands for a character; the five that it leaves open for themselves.
// Windows decides by the system's language which code page that is. A machine with another one
// would show other letters above 0x7F and work the same.
char16_t WideFromAnsi(char byte);

// The byte for a UTF-16 unit, for a fullwidth form that of its plain character, as Windows fits
// text into a code page. False when there is none, and the byte is as before.
bool AnsiFromWide(char16_t unit, char& byte);

// These three do not fail: what is no proper text in one encoding becomes a sign of that in the
// other.
std::string Utf8FromWide(std::u16string_view text);
std::u16string WideFromUtf8(std::string_view text);
std::string Utf8FromAnsi(std::string_view text);

// '?' stands for what the code page does not have.
std::string AnsiFromUtf8(std::string_view text);

// The upper-case form, by which file names and registry keys are compared and sorted.
std::u16string UpperCase(std::u16string_view text);
// As Windows compares names: it has a table of its own for it and no locale. Letters beyond Latin-1
// count as different here.
bool EqualsIgnoringCase(std::u16string_view left, std::u16string_view right);

}  // namespace platform
