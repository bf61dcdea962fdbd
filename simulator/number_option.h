// What the programs of this folder and of the proof ask of a number on their command lines.
#pragma once

#include <CLI/CLI.hpp>
#include <charconv>
#include <string>
#include <system_error>

#include "common/types.h"

namespace simulator {

// An option's number in decimal digits alone: the library would also read "0x20", make 8 of "010"
// and a huge number of "-1". takes says what is taken, for the message.
//
// isTaken judges the number once it is known to be one. It is kept as a pointer, so a lambda with
// captures does not fit. The validator writes the number back without leading zeros: given to
// transform, it hands the library a text that can be read in one way only. A number that 64 bits
// cannot hold is refused like a word.
inline CLI::Validator Number(const char* takes, bool (*isTaken)(u64)) {
  const auto check = [takes, isTaken](std::string& text) {
    u64 number = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec != std::errc() || read.ptr != end || !isTaken(number)) {
      return std::string("takes ") + takes + ", not '" + text + "'";
    }
    text = std::to_string(number);
    return std::string();
  };
  return CLI::Validator(check, "");
}

}  // namespace simulator
