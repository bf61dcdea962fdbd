// One DNLOAD with its status check.

#include "common/status.h"
#include "dfuengine/dfu_requests.h"
#include "dfuengine/operation_thread.h"
#include "dfufile/dfu_image.h"

namespace {

constexpr u32 TransferAttempts = 3;

// CLRSTATUS and GETSTATE before a command, while the device stays in dfuERROR.
constexpr u32 ErrorStateRounds = 3;

// Where the block's bytes start within the element. blockNumber is that of a data block.
u64 BlockOffset(const OperationContext& work) {
  return u64{u32{work.blockNumber} - FirstDataBlock} * work.transferSize;
}

// Whether the data stage that the working copy asks for stays within what there is to send.
bool DataStageExists(const OperationContext& work, const DfuElement& element) {
  if (work.blockNumber == CommandBlock) {
    return work.length <= CommandBlockBytes;
  }
  // In 64 bits, which hold the sum whatever the working copy says.
  return BlockOffset(work) + work.length <= element.Size;
}

}  // namespace

i32 OperationThread::TransferBlock(OperationContext& work) {
  // The attempts clear the command in the working copy; a resend has to repeat the same one.
  const u8 command = work.command;
  for (u32 attemptsLeft = TransferAttempts; attemptsLeft > 0; --attemptsLeft) {
    const Attempt outcome = AttemptTransfer(work, command);
    if (outcome == Attempt::Accepted) {
      return 1;
    }
    if (outcome == Attempt::Over) {
      return 0;
    }
    if (outcome == Attempt::Broken) {
      break;
    }
  }
  return FailWithAbort(work, StatusRequestFailed);
}

OperationThread::Attempt OperationThread::AttemptTransfer(OperationContext& work, u8 command) {
  const DfuElement* element = CurrentElement(work);
  if (element == nullptr || work.blockNumber == UnusedBlock || !DataStageExists(work, *element)) {
    Fail(work, StatusNothingToWorkOn);
    return Attempt::Over;
  }
  if (work.blockNumber == CommandBlock && !LeaveErrorState(work)) {
    return Attempt::Broken;
  }
  if (SendDownload(work, *element, command) != RequestSucceeded) {
    return RecoverFromDownload(work);
  }
  return ReadReply(work);
}

// A device that is still in dfuERROR would refuse the command. False when it cannot be got out of
// there or stops telling its state. One that never told it gets the command all the same, and so
// does one whose answer to CLRSTATUS was lost.
bool OperationThread::LeaveErrorState(OperationContext& work) {
  EnterPhase(work, PhaseGetState);
  if (RequestState(work.winUsbHandle, work.dfuStatus.bState) == RequestSucceeded) {
    SetContext(work);
    for (u32 round = 0; work.dfuStatus.bState == dfuERROR; ++round) {
      if (round == ErrorStateRounds) {
        return false;
      }
      ClearError(work);
      // A read that fails leaves the old state in place, for ever if the device is gone.
      if (RequestState(work.winUsbHandle, work.dfuStatus.bState) != RequestSucceeded) {
        return false;
      }
    }
  }
  SetContext(work);
  return true;
}

u32 OperationThread::SendDownload(OperationContext& work, const DfuElement& element, u8 command) {
  const u32 start = element.Address;
  u8 commandBlock[CommandBlockBytes] = {command, static_cast<u8>(start),
                                        static_cast<u8>(start >> 8), static_cast<u8>(start >> 16),
                                        static_cast<u8>(start >> 24)};
  u8* data = commandBlock;
  work.address = start;
  if (work.blockNumber != CommandBlock) {
    const u64 offset = BlockOffset(work);
    data = element.Data + offset;
    work.address = static_cast<u32>(start + offset);
  }

  // The block number is stored as the whole word, which clears the command.
  work.command = 0;
  work.reserved = 0;
  EnterPhase(work, PhaseDnload);
  return RequestDownload(work.winUsbHandle, work.blockNumber, data, static_cast<u16>(work.length));
}

OperationThread::Attempt OperationThread::RecoverFromDownload(OperationContext& work) {
  EnterPhase(work, PhaseGetState);
  if (RequestState(work.winUsbHandle, work.dfuStatus.bState) != RequestSucceeded) {
    return Attempt::Broken;
  }
  return TryAgain(work);
}

// After the state was read: publishes it and clears an error, so that the next attempt has a
// chance.
OperationThread::Attempt OperationThread::TryAgain(OperationContext& work) {
  SetContext(work);
  if (work.dfuStatus.bState == dfuERROR) {
    ClearError(work);
  }
  return Attempt::Again;
}

OperationThread::Attempt OperationThread::ReadReply(OperationContext& work) {
  if (!ReadStatus(work)) {
    // One more look. Even if it goes well the attempt has failed: nobody knows what became of the
    // block.
    EnterPhase(work, PhaseGetState);
    const u32 result = RequestStatus(work.fileHandle, work.winUsbHandle, &work.dfuStatus);
    return result == RequestSucceeded ? TryAgain(work) : Attempt::Broken;
  }
  if (work.dfuStatus.bState == dfuERROR) {
    return TryAgain(work);
  }
  SetContext(work);
  return JudgeReply(work);
}

OperationThread::Attempt OperationThread::JudgeReply(OperationContext& work) {
  if (work.dfuStatus.bStatus != 0) {
    Fail(work, StatusDeviceError);
    return Attempt::Over;
  }
  switch (work.dfuStatus.bState) {
    case dfuDNBUSY:
      SetContext(work);
      pollTimeout = PollTimeoutMs(work.dfuStatus);
      return Attempt::Accepted;
    case dfuDNLOAD_IDLE:
    case dfuMANIFEST:
      pollTimeout = 0;
      return Attempt::Accepted;
    default:
      Fail(work, StatusUnexpectedState);
      return Attempt::Over;
  }
}
