#include "dfuengine/flash_operation.h"

#include <windows.h>

#include <winusb.h>

#include <algorithm>

#include "common/status.h"
#include "dfuengine/dfu_requests.h"
#include "dfufile/dfu_image.h"

i32 FlashOperation::Step() {
  pollTimeout = 0;
  OperationContext work{};
  GetContext(work);
  switch (work.dfuStatus.bState) {
    case StateNotStarted:
      return FirstStep(work);
    case dfuDNBUSY:
      return StatusStep(work);
    case dfuDNLOAD_IDLE:
      return AdvanceStep(work, false);
    default:
      return FailWithAbort(work, StatusUnexpectedState);
  }
}

i32 FlashOperation::FirstStep(OperationContext& work) {
  work.dfuStatus.bState = StateStarted;
  retriesLeft = RetriesForBadStatus;
  EnterPhase(work, PhaseOpening);
  if (!OpenDevice(work)) {
    return 0;
  }
  EnterPhase(work, PhaseSelecting);

  USB_INTERFACE_DESCRIPTOR settings{};
  if (WinUsb_QueryInterfaceSettings(work.winUsbHandle, 0, &settings) == FALSE) {
    // The next step finds bState still at StateStarted and ends the operation.
    return 1;
  }
  if (WinUsb_SetCurrentAlternateSetting(work.winUsbHandle, settings.bAlternateSetting) == FALSE) {
    return Fail(work, StatusRequestFailed);
  }
  if (ResetToIdle(work) == 0) {
    return 0;
  }

  // Nothing to do is a success, but only for a sound image: without one the keyboard would be taken
  // for updated. The transfer refuses that.
  if (work.image != nullptr && work.image->Valid != 0 && work.image->Elements.size() == 0) {
    work.percent = PercentDone;
    SetContext(work);
    return 0;
  }
  work.elementIndex = 0;
  return SendCommand(work);
}

i32 FlashOperation::StatusStep(OperationContext& work) {
  if (!ReadStatus(work)) {
    return FailWithAbort(work, StatusRequestFailed);
  }
  SetContext(work);
  if (work.dfuStatus.bStatus != 0) {
    return ResendStep(work);
  }
  switch (work.dfuStatus.bState) {
    case dfuDNLOAD_IDLE:
      retriesLeft = RetriesForBadStatus;
      return 1;
    case dfuDNBUSY:
      pollTimeout = PollTimeoutMs(work.dfuStatus);
      retriesLeft = RetriesForBadStatus;
      return 1;
    default:
      return FailWithAbort(work, StatusUnexpectedState);
  }
}

i32 FlashOperation::ResendStep(OperationContext& work) {
  EnterPhase(work, PhaseClearStatus);
  if (work.dfuStatus.bState == dfuERROR) {
    RequestClearStatus(work.winUsbHandle);
  }
  --retriesLeft;
  if (retriesLeft == 0) {
    return FailWithAbort(work, StatusRequestFailed);
  }
  return AdvanceStep(work, true);
}

i32 FlashOperation::AdvanceStep(OperationContext& work, bool resend) {
  UpdatePercent(work);
  SetContext(work);
  if (resend) {
    return work.blockNumber >= FirstDataBlock ? SendBlock(work) : SendCommand(work);
  }

  u32 done = 0;
  const i32 more = NextBlock(work, done);
  if (more == 1 && done == 0) {
    return SendBlock(work);
  }
  if (more == 1) {
    ++work.elementIndex;
    return SendCommand(work);
  }
  if (done == 0) {
    // Neither a block nor an end: without a status the session would wait for ever.
    return Fail(work, StatusNothingToWorkOn);
  }

  // The work is done. A device that fails to become idle now leaves its status in the context.
  ResetToIdle(work);
  work.percent = PercentDone;
  SetContext(work);
  return 0;
}

i32 FlashOperation::SendCommand(OperationContext& work) {
  return work.operationCode == OperationErase ? SendErase(work) : SendSetAddress(work);
}

// Counts in full widths: a percentage that wraps to 100 would end an unfinished operation.
void FlashOperation::UpdatePercent(OperationContext& work) {
  u64 percent = work.percent;
  if (work.operationCode == OperationErase) {
    percent = (u64{work.elementIndex} + 1) * PercentAtWork / work.image->Elements.size();
  } else if (work.blockNumber >= FirstDataBlock && totalBlockCount != 0) {
    for (; elementsCounted < work.elementIndex; ++elementsCounted) {
      blocksCounted += BlockCount(work.image->Elements[elementsCounted].Size, work.transferSize);
    }
    const u64 sent = blocksCounted + (work.blockNumber - FirstDataBlock);
    percent = sent * PercentAtWork / totalBlockCount;
  }
  work.percent = static_cast<u8>(std::min<u64>(percent, PercentAtWork));
}
