#include "dfuengine/operation_thread.h"

#include <algorithm>
#include <cstring>

#include "common/mutex_guard.h"
#include "common/status.h"
#include "common/wide_string.h"
#include "dfudevice/descriptors.h"
#include "dfudevice/dfu_device_entry.h"
#include "dfuengine/dfu_requests.h"
#include "dfufile/dfu_image.h"

namespace {

bool HasPath(const DfuDeviceEntry& entry, const char* devicePath) {
  char path[DevicePathBytes];
  return NarrowToAnsi(entry.path, path, sizeof path) && std::strcmp(path, devicePath) == 0;
}

// Opens the first DFU device as long as it is the update's. Another keyboard that arrives in DFU
// mode may be listed in front: what was erased on one must not be written to the other, whose
// firmware would be neither the old nor the new. The update then fails as if its device were gone.
void OpenDeviceOfUpdate(const char* devicePath, DfuDeviceEntry& entry) {
  OpenFirstDfuDevice(entry);
  if (entry.opened == 1 && !HasPath(entry, devicePath)) {
    CloseDfuDevice(entry);
  }
}

// The device is opened for this alone and closed again: the operation's thread opens its own.
u32 ReadDeviceTransferSize(OperationContext& record) {
  DfuDeviceEntry entry{};
  OpenDeviceOfUpdate(record.devicePath, entry);
  if (entry.opened != 1) {
    return StatusDeviceNotOpened;
  }
  const u32 status = ReadTransferSize(entry.winUsbHandle, record.transferSize);
  CloseDfuDevice(entry);

  if (status == StatusSuccess && record.transferSize == 0) {
    return StatusRequestFailed;
  }
  return status;
}

}  // namespace

const DfuElement* CurrentElement(const OperationContext& work) {
  if (work.image == nullptr || work.image->Valid == 0 ||
      work.elementIndex >= work.image->Elements.size()) {
    return nullptr;
  }
  return &work.image->Elements[work.elementIndex];
}

OperationThread::OperationThread(OperationContext& callerContext)
    : contextMutex(CreateMutexW(nullptr, FALSE, nullptr)) {
  // Without its event the thread could not be stopped, without its mutex a reader could see half a
  // record; such an operation is not to run at all.
  callerContext.status = stopEvent.valid() && contextMutex.valid()
                             ? ReadDeviceTransferSize(callerContext)
                             : StatusRequestFailed;

  context.guidA = callerContext.guidA;
  context.guidB = callerContext.guidB;
  context.operationCode = callerContext.operationCode;
  context.image = callerContext.image;
  context.transferSize = callerContext.transferSize;
  CountBlocks();
  CopyDevicePath(context, callerContext.devicePath);
  std::memset(&context.dfuStatus, StateNotStarted, sizeof context.dfuStatus);
  context.phase = PhaseNotStarted;
  context.blockNumber = 0xFFFF;
  context.command = 0xFF;
  context.reserved = 0xFF;
  context.length = 0xFFFFFFFF;
  context.elementIndex = 0xFFFFFFFF;
  context.status = callerContext.status;
}

void OperationThread::CountBlocks() {
  const DfuImage* image = context.image;
  if (image == nullptr || image->Valid == 0 || context.transferSize == 0) {
    return;
  }
  for (u32 index = 0; index < image->Elements.size(); ++index) {
    totalBlockCount += BlockCount(image->Elements[index].Size, context.transferSize);
  }
  totalBlocks = static_cast<u16>(totalBlockCount);
}

i32 OperationThread::Stop(DWORD* exitCode) {
  return StopAndCloseDevice(exitCode, true);
}

i32 OperationThread::StopAndCloseDevice(DWORD* exitCode, bool abortInterrupted) {
  DWORD threadExitCode = 0;
  const i32 stopped = WorkerThread::Stop(&threadExitCode);
  if (stopped == 1 && exitCode != nullptr) {
    *exitCode = threadExitCode;
  }

  OperationContext last{};
  GetContext(last);
  if (last.fileHandle == nullptr) {
    return stopped;
  }
  if (abortInterrupted && stopped == 1 && threadExitCode == ExitStopped) {
    RequestAbort(last.winUsbHandle);
  }
  // The copy that is published no longer names the handles, so that nobody closes them again.
  CloseDfuHandles(last.fileHandle, last.winUsbHandle);
  SetContext(last);
  return stopped;
}

u32 OperationThread::StepTimeout() {
  return pollTimeout;
}

// Without the mutex the copy is made all the same: a record that may be torn is seen once, but one
// that was left out would be missed for good.
void OperationThread::GetContext(OperationContext& callerContext) {
  const MutexGuard guard(contextMutex.get());

  callerContext = context;
}

void OperationThread::SetContext(const OperationContext& newContext) {
  const MutexGuard guard(contextMutex.get());

  const u32 published = context.updateCount;
  context = newContext;
  context.updateCount = published + 1;
}

i32 OperationThread::NextBlock(OperationContext& work, u32& done) {
  done = 0;
  const DfuElement* element = CurrentElement(work);
  if (element == nullptr) {
    return 0;
  }
  const u64 size = work.operationCode == OperationErase ? 0 : element->Size;
  if (work.blockNumber < FirstDataBlock) {
    work.length = 0;
    work.blockNumber = FirstDataBlock;
  }

  const u64 transferSize = work.transferSize;
  const u64 blockStart = (u64{work.blockNumber} - FirstDataBlock) * transferSize;
  if (work.length + blockStart == size) {
    done = 1;
    return work.elementIndex + 1 < work.image->Elements.size() ? 1 : 0;
  }

  const u64 nextBlock = u64{work.blockNumber} + (work.length != 0 ? 1 : 0);
  const u64 nextStart = (nextBlock - FirstDataBlock) * transferSize;
  // One block more than the number can count would come round to block 0, which is a command. The
  // image preparation refuses such an image; the device may have changed its mind about the size.
  if (nextBlock - FirstDataBlock >= MaximumDataBlocks || nextStart >= size) {
    return 0;
  }
  work.blockNumber = static_cast<u16>(nextBlock);
  work.length = static_cast<u32>(std::min(transferSize, size - nextStart));
  return 1;
}

i32 OperationThread::SendErase(OperationContext& work) {
  return SendCommandBlock(work, CommandErase);
}

i32 OperationThread::SendSetAddress(OperationContext& work) {
  return SendCommandBlock(work, CommandSetAddress);
}

i32 OperationThread::SendCommandBlock(OperationContext& work, u8 command) {
  work.blockNumber = CommandBlock;
  work.command = command;
  work.reserved = 0;
  work.length = CommandBlockBytes;
  work.phase = PhaseDnload;
  return TransferBlock(work);
}

i32 OperationThread::SendBlock(OperationContext& work) {
  work.phase = PhaseDnload;
  return TransferBlock(work);
}

bool OperationThread::OpenDevice(OperationContext& work) {
  DfuDeviceEntry entry{};
  OpenDeviceOfUpdate(work.devicePath, entry);
  if (entry.opened != 1) {
    Fail(work, StatusDeviceNotOpened);
    return false;
  }
  work.winUsbHandle = entry.winUsbHandle;
  work.fileHandle = entry.fileHandle;
  return true;
}

i32 OperationThread::Fail(OperationContext& work, u32 status) {
  work.status = status;
  SetContext(work);
  return 0;
}

i32 OperationThread::FailWithAbort(OperationContext& work, u32 status) {
  Fail(work, status);
  RequestAbort(work.winUsbHandle);
  return 0;
}

void OperationThread::EnterPhase(OperationContext& work, u32 phase) {
  work.phase = phase;
  SetContext(work);
}

bool OperationThread::ReadStatus(OperationContext& work) {
  EnterPhase(work, PhaseGetStatus);
  return RequestStatus(work.fileHandle, work.winUsbHandle, &work.dfuStatus) == RequestSucceeded;
}

bool OperationThread::ClearError(OperationContext& work) {
  EnterPhase(work, PhaseClearStatus);
  return RequestClearStatus(work.winUsbHandle) == RequestSucceeded;
}
