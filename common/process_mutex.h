// A Windows mutex that lives as long as the process.
//
// Made by the first thread that needs it, so that no order of start-up has to be kept, and never
// closed: threads may still wait for it when the process ends.
#pragma once

#include <windows.h>

#include <atomic>

class ProcessMutex {
 public:
  constexpr ProcessMutex() = default;
  ProcessMutex(const ProcessMutex&) = delete;
  ProcessMutex& operator=(const ProcessMutex&) = delete;

  // The mutex, for a MutexGuard. Null when it cannot be made; the next call tries again. Any
  // thread.
  HANDLE Get();

 private:
  std::atomic<HANDLE> mutex_{nullptr};
};
