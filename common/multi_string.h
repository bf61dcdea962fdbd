// Walks a multi-string: zero-terminated strings one behind the other, ended by an empty one.
//
// Device interface lists come in this form. The walk never looks beyond the buffer, whatever the
// buffer holds: a string that is not terminated within it is not handed out.
#pragma once

#include <windows.h>

#include <cstddef>

class MultiStringWalk {
 public:
  // The buffer stays the caller's and outlives the walk. Its length counts characters.
  MultiStringWalk(const WCHAR* buffer, std::size_t bufferChars)
      : at_(buffer), end_(buffer + bufferChars) {}

  // The next string, the first one at first; null when there is none left.
  const WCHAR* NextString() {
    const WCHAR* const text = at_;
    while (at_ != end_ && *at_ != 0) {
      ++at_;
    }
    if (at_ == end_ || at_ == text) {
      // Later calls find the end again.
      end_ = at_;
      return nullptr;
    }
    ++at_;
    return text;
  }

 private:
  const WCHAR* at_;
  const WCHAR* end_;
};
