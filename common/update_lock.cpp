#include "common/update_lock.h"

#include <windows.h>

#include <atomic>

namespace {

// Made by the first thread that needs it and never closed: it lives as long as the process.
constinit std::atomic<HANDLE> updateMutex{nullptr};

HANDLE UpdateMutex() {
  HANDLE mutex = updateMutex.load(std::memory_order_acquire);
  if (mutex != nullptr) {
    return mutex;
  }

  HANDLE made = CreateMutexW(nullptr, FALSE, nullptr);
  if (made == nullptr) {
    return nullptr;
  }
  if (!updateMutex.compare_exchange_strong(mutex, made, std::memory_order_acq_rel)) {
    // Another thread was first; mutex now holds the one that all use.
    CloseHandle(made);
    return mutex;
  }
  return made;
}

}  // namespace

UpdateLock::UpdateLock() : held_(false) {
  const HANDLE mutex = UpdateMutex();
  if (mutex == nullptr) {
    return;
  }
  const DWORD outcome = WaitForSingleObject(mutex, INFINITE);
  held_ = outcome == WAIT_OBJECT_0 || outcome == WAIT_ABANDONED;
}

void UpdateLock::Release() {
  if (held_) {
    held_ = false;
    ReleaseMutex(updateMutex.load(std::memory_order_acquire));
  }
}
