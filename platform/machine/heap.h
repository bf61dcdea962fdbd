// The process heap: every block is counted, and freed once.
//
// Blocks come from the host's own allocator, one each, so that the sanitizers see where they end.
#pragma once

#include <cstddef>
#include <mutex>
#include <set>

#include "platform/machine/fault_log.h"

namespace platform {

// The one heap that GetProcessHeap names. Other heaps are not modelled. Any thread.
class Heap {
 public:
  explicit Heap(FaultLog& faults) : faults_(faults) {}

  // --- For the script of a run ---

  // Blocks that are allocated now. At the end of a life there should be as many as at its quiet
  // moments.
  std::size_t OpenBlocks() const;

  // --- For the calls of the layer ---

  // Null when the host has no memory left. A block that is not zeroed holds no zeros either.
  void* Allocate(std::size_t bytes, bool zeroed);

  // False, with a fault, for what is no block of this heap.
  bool Free(void* block);

 private:
  FaultLog& faults_;
  mutable std::mutex lock_;
  std::set<void*> blocks_;
};

}  // namespace platform
