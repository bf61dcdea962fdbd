// Arguments of calls as a trace tells them. Two runs of the same service give the same texts, so
// where something lies in memory, and the value of a handle, is no part of them.
#pragma once

#include <windows.h>
#include <winusb.h>

#include <string>
#include <type_traits>

#include "platform/machine/text.h"

namespace platform {

// In quotes and in one line: line ends become "\n" and "\r" as one writes them. Quotes inside stay
// as they are, so the text is for people and not to be read back.
inline std::string QuotedArgument(const std::string& text) {
  std::string quoted = "\"";
  for (const char character : text) {
    quoted += character == '\n' ? "\\n" : character == '\r' ? "\\r" : std::string(1, character);
  }
  return quoted + '"';
}

// Text that a call only reads is shown whole, wide text as UTF-8, and must end with a NUL. Of any
// other pointer, a handle among them, one learns whether it is null. Numbers are decimal, as are
// the values of enumerations.
template <class T>
std::string ArgumentText(const T& argument) {
  if constexpr (std::is_same_v<T, LPCWSTR>) {
    return argument == nullptr ? "null" : QuotedArgument(Utf8FromWide(argument));
  } else if constexpr (std::is_same_v<T, LPCSTR>) {
    return argument == nullptr ? "null" : QuotedArgument(argument);
  } else if constexpr (std::is_same_v<T, WINUSB_SETUP_PACKET>) {
    return "request " + std::to_string(argument.Request) + " value " +
           std::to_string(argument.Value) + " length " + std::to_string(argument.Length);
  } else if constexpr (std::is_pointer_v<T>) {
    return argument == nullptr ? "null" : "*";
  } else if constexpr (std::is_enum_v<T>) {
    return std::to_string(static_cast<std::underlying_type_t<T>>(argument));
  } else {
    return std::to_string(argument);
  }
}

}  // namespace platform
