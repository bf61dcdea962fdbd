// The operation that erases sectors (operation code 3) or downloads firmware (code 4), one request
// after the other, at the pace that the device asks for.
//
// The erase image names one sector an element, by its start address. Made by LaunchOperation.
#pragma once

#include "common/types.h"
#include "dfuengine/operation_thread.h"

class FlashOperation : public OperationThread {
 public:
  using OperationThread::OperationThread;

  // One request and its answer at a time. 1 to be run again, 0 at the end; the published context
  // then holds percent 100 and StatusSuccess, or the status of the failure.
  i32 Step() override;

 private:
  i32 FirstStep(OperationContext& work);
  i32 StatusStep(OperationContext& work);
  i32 AdvanceStep(OperationContext& work, bool resend);
  i32 ResendStep(OperationContext& work);
  i32 SendCommand(OperationContext& work);
  void UpdatePercent(OperationContext& work);

  // The elements that are complete, as far as they were counted, and their data blocks: an image
  // has many, and each block asks. Only the operation's thread touches them.
  u32 elementsCounted = 0;
  u64 blocksCounted = 0;
};
