#include "platform/machine/heap.h"

#include <cstdlib>
#include <cstring>

namespace platform {

std::size_t Heap::OpenBlocks() const {
  const std::scoped_lock lock(lock_);
  return blocks_.size();
}

// A caller that forgets HEAP_ZERO_MEMORY often finds zeros on a fresh heap. Here it finds none.
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
  blocks_.insert(block);
  return block;
}

// The block is struck off before it is freed: another thread may be given the same address at once.
bool Heap::Free(void* block) {
  {
    const std::scoped_lock lock(lock_);
    if (blocks_.erase(block) == 0) {
      faults_.Add(block == nullptr ? "HeapFree: null"
                                   : "HeapFree: a block that is not allocated, or not any more");
      return false;
    }
  }
  std::free(block);
  return true;
}

}  // namespace platform
