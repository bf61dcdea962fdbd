// The one lock of the service.
//
// It guards everything that belongs to the update as a whole: deviceVersion, packageVersion,
// packagePath, keyboardHandle, dfuDeviceList, memoryMapTable, the registries of files, images and
// operations, and the values of the update session. The notification callbacks, the service entry
// and TickThread reach those at the same time.
//
// EvaluateUpdate (but not across its long sleep), PrepareDfuUpdate and SessionStep hold it.
// Operation threads, LaunchNotifier, OpenFirstDfuDevice and the control handler never take it: its
// holder may wait for an operation thread to end.
#pragma once

class UpdateLock {
 public:
  // Waits for the lock. A thread that holds it may take it again; each guard releases once.
  UpdateLock();
  UpdateLock(const UpdateLock&) = delete;
  UpdateLock& operator=(const UpdateLock&) = delete;
  ~UpdateLock() { Release(); }

  // False when the lock could not be had. The caller then does nothing: an update that runs beside
  // another one is worse than none.
  bool held() const { return held_; }

  // Gives the lock back before the end of the scope. A second call does nothing.
  void Release();

 private:
  bool held_;
};
