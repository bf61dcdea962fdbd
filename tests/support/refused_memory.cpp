#include "tests/support/refused_memory.h"

#include <atomic>
#include <new>

namespace {

// Requests still to come up to the one that is refused; 0 or less when none is.
std::atomic<std::ptrdiff_t> requestsLeft = 0;
std::atomic<bool> refused = false;

bool Refuses() {
  if (requestsLeft.load() <= 0 || requestsLeft.fetch_sub(1) != 1) {
    return false;
  }
  refused = true;
  return true;
}

}  // namespace

// As the standard library's own, which come down to the throwing forms, too.
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  try {
    return Refuses() ? nullptr : ::operator new(bytes);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  try {
    return Refuses() ? nullptr : ::operator new[](bytes);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

RefusedMemory::RefusedMemory(std::size_t request) {
  refused = false;
  requestsLeft = static_cast<std::ptrdiff_t>(request);
}

RefusedMemory::~RefusedMemory() {
  requestsLeft = 0;
}

bool RefusedMemory::met() const {
  return refused;
}
