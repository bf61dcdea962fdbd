// printf-style formatting into UTF-16 text, the same on every side.
//
// The C library's wide formatting counts characters of another width off Windows, and its "%s"
// takes a narrow string under some compilers. Here a character is a WCHAR and "%s" takes a WCHAR
// string. Formats know %d %u %x %X %s and %%; the numbers may be filled up with zeros to a width of
// one digit ("%04X"). Numbers have up to 32 bits.
//
// Whoever formats goes through WriteDebugFormat (debug_output.h), which has the compiler compare
// the conversions with the arguments; nothing is compared again when it runs. Any thread; keeps no
// state.
#pragma once

#include <windows.h>

#include <concepts>
#include <cstddef>

#include "common/types.h"

// What a conversion takes, or why it takes nothing.
enum class FormatKind { Number, Text, Percent, Unknown };

// One argument: a number of up to 32 bits, or a WCHAR string that outlives the call.
class FormatArgument {
 public:
  template <std::integral Number>
  requires(sizeof(Number) <= sizeof(u32)) constexpr FormatArgument(Number value)
      : kind(FormatKind::Number), number(static_cast<u32>(value)), text(nullptr) {}

  constexpr FormatArgument(const WCHAR* value) : kind(FormatKind::Text), number(0), text(value) {}

  FormatKind kind;
  // Signed values are kept as their two's complement; %d turns them back.
  u32 number;
  const WCHAR* text;
};

// One conversion of a format, as read from behind its '%'.
struct FormatConversion {
  FormatKind kind;
  WCHAR letter;
  u32 width;
  // First character behind the conversion.
  const WCHAR* end;
};

constexpr FormatConversion ReadConversion(const WCHAR* behindPercent) {
  const WCHAR* at = behindPercent;
  u32 width = 0;
  if (at[0] == '0' && at[1] >= '1' && at[1] <= '9') {
    width = static_cast<u32>(at[1] - '0');
    at += 2;
  }

  const WCHAR letter = *at;
  FormatKind kind = FormatKind::Unknown;
  if (letter == 'd' || letter == 'u' || letter == 'x' || letter == 'X') {
    kind = FormatKind::Number;
  } else if (at == behindPercent && letter == 's') {
    kind = FormatKind::Text;
  } else if (at == behindPercent && letter == '%') {
    kind = FormatKind::Percent;
  }
  return {kind, letter, width, letter == 0 ? at : at + 1};
}

// Formats into the buffer and returns the length in characters without the terminating zero.
//
// Text that does not fit is cut; the buffer, of at least one character, is always terminated. The
// arguments are as many as the format has conversions, each of the kind that its conversion takes.
std::size_t FormatWide(WCHAR* buffer, std::size_t capacityChars, const WCHAR* format,
                       const FormatArgument* arguments);
