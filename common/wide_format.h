// printf-style formatting into UTF-16 text, the same on every side.
//
// The C library's wide formatting counts characters of another width off Windows, and its "%s"
// takes a narrow string under some compilers. Here a character is a WCHAR and "%s" takes a WCHAR
// string. Formats know %d %u %x %X %s and %%; %d %u %x %X may carry a width of one digit, with a
// leading 0 for zeros instead of blanks ("%04X"). Numbers have up to 32 bits.
//
// Most callers use WriteDebugFormat (debug_output.h) instead. Any thread; keeps no state.
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
  bool zeroFilled;
  u32 width;
  // First character behind the conversion.
  const WCHAR* end;
};

constexpr FormatConversion ReadConversion(const WCHAR* behindPercent) {
  const WCHAR* at = behindPercent;
  const bool zeroFilled = *at == '0';
  at += zeroFilled ? 1 : 0;
  u32 width = 0;
  if (*at >= '1' && *at <= '9') {
    width = static_cast<u32>(*at - '0');
    ++at;
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
  return {kind, letter, zeroFilled, width, letter == 0 ? at : at + 1};
}

// Formats into the buffer and returns the length in characters without the terminating zero.
//
// Text that does not fit is cut; the buffer is always terminated unless capacityChars is 0, and
// then nothing is written. A null string prints as "(null)". A conversion that is unknown, or that
// has no argument of its kind, is copied as it stands.
std::size_t FormatWide(WCHAR* buffer, std::size_t capacityChars, const WCHAR* format,
                       const FormatArgument* arguments, std::size_t argumentCount);
