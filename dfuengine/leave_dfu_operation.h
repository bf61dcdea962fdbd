// The last operation of an update: the keyboard is to start what was written to it, and the user is
// told "COMPLETE".
//
// A device may reset before it answers, so what becomes of the request does not decide the
// operation: once the device is in dfuIDLE, it ends well. Made by LaunchOperation.
#pragma once

#include "common/types.h"
#include "dfuengine/operation_thread.h"

class LeaveDfuOperation : public OperationThread {
 public:
  using OperationThread::OperationThread;

  // Three steps: the request (15 percent), a pause (50), and the word to the user (100).
  i32 Step() override;

  // As OperationThread::Stop, but the device is never sent ABORT.
  i32 Stop(DWORD* exitCode) override;

  // While the request is under way its failures are not published: the session driver would take
  // them for the end of the operation, which has yet to tell the user.
  void SetContext(const OperationContext& newContext) override;

 private:
  i32 RequestLeave(OperationContext& work);
  i32 Pause(OperationContext& work);
  i32 TellComplete(OperationContext& work);

  // Steps waited since the request. Only the operation's thread touches it.
  i32 waitCount = 0;

  // Set by the operation's thread around the request. Stop reads it after that thread has ended.
  bool transferResultIgnored = false;
};
