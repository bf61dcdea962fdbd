// Makes requests for memory fail, as far as the product asks in a way that can be refused: with new
// (std::nothrow). Everything else in the test gets its memory as ever.
#pragma once

#include <cstddef>

// While the object lives, the request with this number, counted from 1 on all threads, is refused.
// There is one such object at a time.
class RefusedMemory {
 public:
  explicit RefusedMemory(std::size_t request);
  ~RefusedMemory();
  RefusedMemory(const RefusedMemory&) = delete;
  RefusedMemory& operator=(const RefusedMemory&) = delete;

  // Whether there were so many requests that one was refused.
  bool met() const;
};
