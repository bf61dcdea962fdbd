#include "dfuengine/leave_dfu_operation.h"

#include "common/status.h"
#include "dfuengine/dfu_requests.h"
#include "notifier/notifier_launch.h"
#include "notifier/notifier_message.h"

namespace {

constexpr u8 PercentRequesting = 15;
constexpr i32 PercentWaiting = 50;
constexpr i32 WaitsPerPercent = 8;

}  // namespace

// By the phase: bState is what the device answered last, and it may answer anything.
i32 LeaveDfuOperation::Step() {
  pollTimeout = 0;
  OperationContext work{};
  GetContext(work);
  switch (work.phase) {
    case PhaseLeaving:
      return Pause(work);
    case PhaseLeft:
      return TellComplete(work);
    default:
      return RequestLeave(work);
  }
}

i32 LeaveDfuOperation::RequestLeave(OperationContext& work) {
  work.dfuStatus.bState = StateStarted;
  EnterPhase(work, PhaseOpening);
  if (!OpenDevice(work)) {
    return 0;
  }
  if (ResetToIdle(work) == 0) {
    return 0;
  }

  work.blockNumber = CommandBlock;
  work.command = 0;
  work.reserved = 0;
  work.length = 0;
  work.percent = PercentRequesting;
  work.phase = PhaseDnload;
  work.elementIndex = 0;
  transferResultIgnored = true;
  TransferBlock(work);
  transferResultIgnored = false;

  // The device resets, so the handles have served; a device that reported its manifestation has had
  // them closed already.
  CloseDfuHandles(work.fileHandle, work.winUsbHandle);
  work.status = StatusSuccess;
  waitCount = 0;
  EnterPhase(work, PhaseLeaving);
  return 1;
}

i32 LeaveDfuOperation::Pause(OperationContext& work) {
  ++waitCount;
  work.percent = static_cast<u8>(PercentWaiting + waitCount / WaitsPerPercent);
  EnterPhase(work, PhaseLeft);
  return 1;
}

i32 LeaveDfuOperation::TellComplete(OperationContext& work) {
  LaunchNotifier(NotifierMessage::Complete);
  work.percent = PercentDone;
  SetContext(work);
  return 0;
}

i32 LeaveDfuOperation::Stop(DWORD* exitCode) {
  return StopAndCloseDevice(exitCode, false);
}

void LeaveDfuOperation::SetContext(const OperationContext& newContext) {
  if (!transferResultIgnored) {
    OperationThread::SetContext(newContext);
    return;
  }
  OperationContext masked = newContext;
  masked.status = StatusSuccess;
  OperationThread::SetContext(masked);
}
