// The service's diagnostics: lines for the debugger, written from any thread.
//
// A text appears exactly as it is given: no prefix, no level, no time stamp, no added line end.
// Nothing here takes memory from the heap or fails. The last-error value may change, so a caller
// that reports GetLastError reads it before it writes its first line.
#pragma once

#include <windows.h>

#include <cstddef>
#include <type_traits>

#include "common/types.h"
#include "common/wide_format.h"

// The most characters that one formatted line holds; longer lines are cut.
inline constexpr std::size_t DebugLineChars = 512;

// Writes a finished text. Any '%' in it is printed as it stands, so this is the one for paths and
// for other texts that come from outside.
void WriteDebugText(const WCHAR* text);

// What WriteDebugFormat comes down to once the compiler has looked at the format.
void WriteDebugArguments(const WCHAR* format, const FormatArgument* arguments);

// Never defined: a call in a constant expression makes the compiler point at the faulty line.
void FormatDoesNotSuitItsArguments();

// A format literal that the compiler has checked against the types of its arguments.
template <class... Arguments>
class CheckedFormat {
 public:
  consteval CheckedFormat(const WCHAR* format) : text(format) {
    constexpr std::size_t count = sizeof...(Arguments);
    const FormatKind kinds[count + 1] = {KindOf<Arguments>()..., FormatKind::Unknown};
    std::size_t index = 0;
    for (const WCHAR* at = format; *at != 0;) {
      if (*at++ != '%') {
        continue;
      }
      const FormatConversion conversion = ReadConversion(at);
      at = conversion.end;
      if (conversion.kind == FormatKind::Percent) {
        continue;
      }
      if (index == count || conversion.kind != kinds[index++]) {
        FormatDoesNotSuitItsArguments();
      }
    }
    if (index != count) {
      FormatDoesNotSuitItsArguments();
    }
  }

  const WCHAR* text;

 private:
  template <class Argument>
  static consteval FormatKind KindOf() {
    return std::is_convertible_v<Argument, const WCHAR*> ? FormatKind::Text : FormatKind::Number;
  }
};

// Formats a line (see wide_format.h for the conversions, "%s" takes a WCHAR string) and writes it.
// The format is a literal; its conversions and the arguments' types are compared at compile time.
template <class... Arguments>
void WriteDebugFormat(std::type_identity_t<CheckedFormat<Arguments...>> format,
                      const Arguments&... arguments) {
  // One more than there are, because an array cannot be empty.
  const FormatArgument list[] = {FormatArgument(arguments)..., FormatArgument(0)};
  WriteDebugArguments(format.text, list);
}
