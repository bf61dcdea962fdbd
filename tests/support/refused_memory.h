// Makes requests for memory fail, as far as the product asks in a way that can be refused (see
// simulator/product_memory.h). Everything else in the test gets its memory as ever.
#pragma once

#include "simulator/product_memory.h"

// While the object lives, the request with this number, counted from 1 on all threads, is refused.
// There is one such object at a time.
class RefusedMemory {
 public:
  explicit RefusedMemory(std::size_t request) { simulator::RefuseMemoryRequest(request); }
  ~RefusedMemory() { simulator::RefuseMemoryRequest(0); }
  RefusedMemory(const RefusedMemory&) = delete;
  RefusedMemory& operator=(const RefusedMemory&) = delete;

  // Whether there were enough requests for one to be refused.
  bool met() const { return simulator::MemoryWasRefused(); }
};
