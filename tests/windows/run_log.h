// The log of a run under Wine: lines of what the keyboard and the service's driver see, each behind
// the machine's milliseconds. Both processes append to the same file. Any thread.
#pragma once

#include <string>

inline constexpr char RunFolder[] = "C:\\keyboard\\";

// Appends one line.
void Log(const std::string& line);

// Eight hexadecimal digits behind 0x.
std::string Hex(unsigned int number);

// How many lines of the log hold the text.
unsigned int CountInLog(const std::string& text);
