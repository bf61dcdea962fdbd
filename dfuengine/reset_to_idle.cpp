// Brings the device to dfuIDLE, whatever state an earlier operation left it in.

#include "common/status.h"
#include "dfuengine/dfu_requests.h"
#include "dfuengine/operation_thread.h"

bool OperationThread::ReadStatusOrFail(OperationContext& work) {
  if (!ReadStatus(work)) {
    FailWithAbort(work, StatusRequestFailed);
    return false;
  }
  SetContext(work);
  return true;
}

i32 OperationThread::ResetToIdle(OperationContext& work) {
  if (!ReadStatus(work) || work.dfuStatus.bState == dfuERROR) {
    if (!ClearError(work)) {
      return FailWithAbort(work, StatusRequestFailed);
    }
    if (!ReadStatusOrFail(work)) {
      return 0;
    }
  }
  if (!ReadStatusOrFail(work)) {
    return 0;
  }

  if (work.dfuStatus.bState != dfuIDLE) {
    EnterPhase(work, PhaseAbort);
    if (RequestAbort(work.winUsbHandle) != RequestSucceeded) {
      ClearError(work);
    }
    if (!ReadStatusOrFail(work)) {
      return 0;
    }
  }
  if (work.dfuStatus.bState == dfuERROR) {
    ClearError(work);
    ReadStatus(work);
    SetContext(work);
  }

  i32 result = 1;
  if (work.dfuStatus.bState != dfuIDLE) {
    work.status = StatusUnexpectedState;
    RequestAbort(work.winUsbHandle);
    result = 0;
  }
  SetContext(work);
  return result;
}
