#include "common/wide_string.h"

#include <climits>
#include <cstring>

namespace {

WCHAR FoldAsciiCase(WCHAR character) {
  const bool upperCase = character >= 'A' && character <= 'Z';
  return upperCase ? static_cast<WCHAR>(character + ('a' - 'A')) : character;
}

// The conversion calls count in signed ints.
bool FitsInt(std::size_t count) {
  return count <= static_cast<std::size_t>(INT_MAX);
}

}  // namespace

std::size_t WideLength(const WCHAR* text) {
  std::size_t lengthChars = 0;
  while (text[lengthChars] != 0) {
    ++lengthChars;
  }
  return lengthChars;
}

bool WideEquals(const WCHAR* left, const WCHAR* right) {
  while (*left != 0 && *left == *right) {
    ++left;
    ++right;
  }
  return *left == *right;
}

bool WideEqualsIgnoringCase(const WCHAR* left, const WCHAR* right) {
  while (*left != 0 && FoldAsciiCase(*left) == FoldAsciiCase(*right)) {
    ++left;
    ++right;
  }
  return FoldAsciiCase(*left) == FoldAsciiCase(*right);
}

bool WidenAnsi(const char* text, WCHAR* out, std::size_t capacityChars) {
  if (capacityChars == 0) {
    return false;
  }
  out[0] = 0;
  const std::size_t textBytes = std::strlen(text) + 1;
  if (!FitsInt(textBytes) || !FitsInt(capacityChars)) {
    return false;
  }

  const int writtenChars = MultiByteToWideChar(CP_THREAD_ACP, 0, text, static_cast<int>(textBytes),
                                               out, static_cast<int>(capacityChars));
  if (writtenChars <= 0) {
    // A conversion that ran out of room may have left part of the text.
    out[0] = 0;
    return false;
  }
  return true;
}

bool NarrowToAnsi(const WCHAR* text, char* out, std::size_t capacityBytes) {
  if (capacityBytes == 0) {
    return false;
  }
  out[0] = 0;
  const std::size_t textChars = WideLength(text) + 1;
  if (!FitsInt(textChars) || !FitsInt(capacityBytes)) {
    return false;
  }

  const int writtenBytes =
      WideCharToMultiByte(CP_THREAD_ACP, 0, text, static_cast<int>(textChars), out,
                          static_cast<int>(capacityBytes), nullptr, nullptr);
  if (writtenBytes <= 0) {
    out[0] = 0;
    return false;
  }
  return true;
}
