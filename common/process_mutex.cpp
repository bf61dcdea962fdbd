#include "common/process_mutex.h"

HANDLE ProcessMutex::Get() {
  HANDLE mutex = mutex_.load();
  if (mutex != nullptr) {
    return mutex;
  }

  const HANDLE made = CreateMutexW(nullptr, FALSE, nullptr);
  if (made == nullptr) {
    return nullptr;
  }
  if (!mutex_.compare_exchange_strong(mutex, made)) {
    // Another thread was first; mutex now holds the one that all use.
    CloseHandle(made);
    return mutex;
  }
  return made;
}
