// Zero-filled memory from the process heap, for lists that Windows fills.
#pragma once

#include <windows.h>

#include <cstddef>

#include "common/types.h"

// Holds plain elements and frees them when its scope ends. Neither copies nor moves.
template <class Element>
class HeapBuffer {
 public:
  HeapBuffer() = default;
  HeapBuffer(const HeapBuffer&) = delete;
  HeapBuffer& operator=(const HeapBuffer&) = delete;
  ~HeapBuffer() { Free(); }

  // Frees what is held and asks for memory anew. False when it is refused: the size often comes
  // from a device or from a list that somebody else makes. The buffer is empty then.
  bool Allocate(u32 count) {
    Free();
    elements_ = static_cast<Element*>(
        HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, std::size_t{count} * sizeof(Element)));
    count_ = elements_ != nullptr ? count : 0;
    return elements_ != nullptr;
  }

  // Null, with a count of 0, while nothing is held.
  Element* data() { return elements_; }
  const Element* data() const { return elements_; }
  u32 count() const { return count_; }

 private:
  void Free() {
    if (elements_ != nullptr) {
      HeapFree(GetProcessHeap(), 0, elements_);
    }
  }

  Element* elements_ = nullptr;
  u32 count_ = 0;
};
