// One scope that holds a Windows mutex.
//
// The guard belongs to the thread that made it, which is also the one that gives the mutex back.
#pragma once

#include <windows.h>

class MutexGuard {
 public:
  // Waits for the mutex without limit; a wait that fails is made once more. A thread that holds the
  // mutex may take it again, each guard gives it back once. Null is never held. The handle stays
  // the caller's and outlives the guard.
  explicit MutexGuard(HANDLE mutex) : mutex_(mutex), held_(Wait(mutex) || Wait(mutex)) {}
  MutexGuard(const MutexGuard&) = delete;
  MutexGuard& operator=(const MutexGuard&) = delete;
  ~MutexGuard() { Release(); }

  // False when the mutex could not be had; the caller decides what that means.
  bool held() const { return held_; }

  // Gives the mutex back before the end of the scope. A second call does nothing, and so does a
  // call when the mutex was never held.
  void Release() {
    if (held_) {
      held_ = false;
      ReleaseMutex(mutex_);
    }
  }

 private:
  // An abandoned mutex is held as well: its owner ended without giving it back.
  static bool Wait(HANDLE mutex) {
    if (mutex == nullptr) {
      return false;
    }
    const DWORD outcome = WaitForSingleObject(mutex, INFINITE);
    return outcome == WAIT_OBJECT_0 || outcome == WAIT_ABANDONED;
  }

  HANDLE mutex_;
  bool held_;
};
