#include "platform/machine/heap.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace platform {

std::size_t Heap::OpenBlocks() const {
  const std::scoped_lock lock(lock_);
  return blocks_.size();
}

std::size_t Heap::OpenBytes() const {
  const std::scoped_lock lock(lock_);
  return openBytes_;
}

std::size_t Heap::PeakBytes() const {
  const std::scoped_lock lock(lock_);
  return peakBytes_;
}

void* Heap::Allocate(std::size_t bytes, bool zeroed) {
  constexpr int Stale = 0xBD;
  void* const block = zeroed ? std::calloc(1, bytes) : std::malloc(bytes);
  if (block == nullptr) {
    return nullptr;
  }
  if (!zeroed) {
    std::memset(block, Stale, bytes);
  }
  const std::scoped_lock lock(lock_);
  blocks_[block] = bytes;
  openBytes_ += bytes;
  peakBytes_ = std::max(peakBytes_, openBytes_);
  return block;
}

bool Heap::Free(void* block) {
  {
    const std::scoped_lock lock(lock_);
    const auto found = blocks_.find(block);
    if (found == blocks_.end()) {
      faults_.Add(block == nullptr ? "HeapFree: null"
                                   : "HeapFree: a block that is not allocated, or not any more");
      return false;
    }
    openBytes_ -= found->second;
    blocks_.erase(found);
  }
  std::free(block);
  return true;
}

}  // namespace platform
