#include "simulator/product_memory.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace simulator {

namespace {

std::atomic<std::size_t> blocksInUse = 0;
std::atomic<std::size_t> bytesInUse = 0;
std::atomic<std::size_t> requests = 0;
std::atomic<std::size_t> bytesAsked = 0;
std::atomic<std::size_t> bytesAtPeak = 0;

// Requests still to come up to the one that is refused; 0 or less when none is.
std::atomic<std::ptrdiff_t> requestsLeft = 0;
std::atomic<bool> refused = false;
std::atomic<void (*)()> refusalObserver = nullptr;

// In front of every block: what it is, and how long. The blocks come from malloc, so the sanitizers
// cannot tell which form asked for one; this does.
struct alignas(__STDCPP_DEFAULT_NEW_ALIGNMENT__) Header {
  std::size_t bytes;
  bool isCounted;
  bool isArray;
};

// The product asks for memory with the form that returns null, everybody else with the form that
// throws. So the two can be told apart by who is called.
bool Refuses() {
  ++requests;
  if (requestsLeft.load() <= 0 || requestsLeft.fetch_sub(1) != 1) {
    return false;
  }
  refused = true;
  if (void (*const observer)() = refusalObserver; observer != nullptr) {
    observer();
  }
  return true;
}

void NotePeak(std::size_t inUse) {
  std::size_t peak = bytesAtPeak;
  while (peak < inUse && !bytesAtPeak.compare_exchange_weak(peak, inUse)) {
  }
}

void* Allocate(std::size_t bytes, bool isArray, bool isCounted) {
  if (bytes > SIZE_MAX - sizeof(Header)) {
    return nullptr;
  }
  auto* const header = static_cast<Header*>(std::malloc(sizeof(Header) + bytes));
  if (header == nullptr) {
    return nullptr;
  }
  *header = {bytes, isCounted, isArray};
  if (isCounted) {
    ++blocksInUse;
    bytesAsked += bytes;
    NotePeak(bytesInUse += bytes);
  }
  return header + 1;
}

void Free(void* block, bool isArray) {
  if (block == nullptr) {
    return;
  }
  Header* const header = static_cast<Header*>(block) - 1;
  // On Windows such a mix goes wrong only with some allocators, so it would come to light late.
  if (header->isArray != isArray) {
    std::fputs("a block was asked for with one of new and new[], and freed with the other\n",
               stderr);
    std::abort();
  }
  if (header->isCounted) {
    --blocksInUse;
    bytesInUse -= header->bytes;
  }
  std::free(header);
}

// There is nothing that a simulator without memory could still show.
void* AllocateOrEnd(std::size_t bytes, bool isArray) {
  void* const block = Allocate(bytes, isArray, false);
  if (block == nullptr) {
    std::abort();
  }
  return block;
}

}  // namespace

MemoryFigures ProductMemory() {
  return {blocksInUse, bytesInUse, requests, bytesAsked, bytesAtPeak};
}

void ForgetMemoryPeak() {
  bytesAtPeak = bytesInUse.load();
}

void RefuseMemoryRequest(std::size_t number) {
  refused = false;
  requestsLeft = static_cast<std::ptrdiff_t>(number);
}

void OnMemoryRefused(void (*observer)()) {
  refusalObserver = observer;
}

bool MemoryWasRefused() {
  return refused;
}

}  // namespace simulator

void* operator new(std::size_t bytes) {
  return simulator::AllocateOrEnd(bytes, false);
}
void* operator new[](std::size_t bytes) {
  return simulator::AllocateOrEnd(bytes, true);
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  return simulator::Refuses() ? nullptr : simulator::Allocate(bytes, false, true);
}

void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  return simulator::Refuses() ? nullptr : simulator::Allocate(bytes, true, true);
}

void operator delete(void* block) noexcept {
  simulator::Free(block, false);
}
void operator delete[](void* block) noexcept {
  simulator::Free(block, true);
}
void operator delete(void* block, std::size_t) noexcept {
  simulator::Free(block, false);
}
void operator delete[](void* block, std::size_t) noexcept {
  simulator::Free(block, true);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  simulator::Free(block, false);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  simulator::Free(block, true);
}
