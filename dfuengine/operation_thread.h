// A DFU operation: a worker thread with its published context, and the routines on the wire that
// the erase, download and leave steps are made of.
//
// Objects are made by LaunchOperation and ended by FinishOperation (operation_registry.h), both
// under the update lock. Every routine that takes a working copy runs on the operation's own thread
// and publishes the copy before each request and after each reply. Nothing here takes any lock but
// contextMutex, so the holder of the update lock may wait for the thread.
#pragma once

#include <windows.h>

#include "common/handles.h"
#include "common/types.h"
#include "dfuengine/operation_context.h"
#include "dfuengine/worker_thread.h"

struct DfuElement;

class OperationThread : public WorkerThread {
 public:
  // Opens the first DFU device, reads its transfer size into the caller's transferSize and closes
  // it again; then takes over guidA, guidB, operationCode, image, devicePath and transferSize.
  //
  // The caller's status tells the outcome: StatusSuccess; StatusDeviceNotOpened, also when the
  // first DFU device is not the one that the caller's devicePath names, which an empty one never
  // does; StatusRequestFailed when the transfer size cannot be read or is 0 (such a device cannot
  // be written to, so nothing may be erased on it either) or when the event or the mutex cannot be
  // made. An object that did not come to StatusSuccess must not be started.
  explicit OperationThread(OperationContext& callerContext);

  // As WorkerThread::Stop, then closes the device if the published context still holds it. An
  // operation that was interrupted, not finished, sends the device ABORT first.
  i32 Stop(DWORD* exitCode) override;

  // The milliseconds that the last step asked for.
  u32 StepTimeout() override;

  // Hands out what was published last. Any thread.
  virtual void GetContext(OperationContext& callerContext);

  // Publishes the caller's record, except for its updateCount: the published one goes up by 1.
  virtual void SetContext(const OperationContext& newContext);

  // Moves the working copy on to the next data block of the current element.
  //   1, done 0: a block is due; blockNumber and length are set for it.
  //   1, done 1: the element is complete and another one follows.
  //   0, done 1: the last element is complete.
  //   0, done 0: there is no valid element, or the block number would wrap; nothing may be sent.
  virtual i32 NextBlock(OperationContext& work, u32& done);

  // Brings the device to dfuIDLE. 1 when it is there; otherwise 0, with the status published and
  // the device sent ABORT.
  virtual i32 ResetToIdle(OperationContext& work);

  // Sends the erase command, the set-address-pointer command or the data block that blockNumber and
  // length name, each for the current element. Results as TransferBlock.
  virtual i32 SendErase(OperationContext& work);
  virtual i32 SendSetAddress(OperationContext& work);
  virtual i32 SendBlock(OperationContext& work);

  // Sends one DNLOAD, up to three times, and judges the device's answer. phase, blockNumber and
  // length are set by the caller, and command for block 0.
  //
  // 1 when the device accepted it; pollTimeout is then what the device asked for. Otherwise 0 with
  // the status published: StatusNothingToWorkOn (no such element, block 1, or more bytes than the
  // element has; nothing was sent), StatusRequestFailed, StatusDeviceError, StatusUnexpectedState.
  i32 TransferBlock(OperationContext& work);

  // Link of operationRegistry.
  OperationThread* nextInList = nullptr;

  // Unique and never 0 once launched. Written by LaunchOperation, under the update lock.
  u32 operationId = 0;

 protected:
  i32 StopAndCloseDevice(DWORD* exitCode, bool abortInterrupted);

  // Opens the first DFU device for the working copy. False when it cannot be opened or is not the
  // one of devicePath; the status is then published and the copy holds no handles.
  bool OpenDevice(OperationContext& work);

  // Stores the status and publishes. Always 0, for the caller to return.
  i32 Fail(OperationContext& work, u32 status);

  // The same, and then sends ABORT.
  i32 FailWithAbort(OperationContext& work, u32 status);

  // Stores the phase and publishes, as is due before each request.
  void EnterPhase(OperationContext& work, u32 phase);

  // Reads the device's status in PhaseGetStatus. True when the device has answered.
  bool ReadStatus(OperationContext& work);

  // Sends CLRSTATUS in PhaseClearStatus. True when the device took it.
  bool ClearError(OperationContext& work);

  // Milliseconds before the next step. Only the operation's thread touches it once it runs.
  u32 pollTimeout = 0;

  // Status replies with an error that the current block may still have. Operation's thread.
  static constexpr u32 RetriesForBadStatus = 3;
  u32 retriesLeft = RetriesForBadStatus;

  // Data blocks of the whole image: as a 16-bit field, and in full for the progress. Written by the
  // constructor only.
  u16 totalBlocks = 0;
  u64 totalBlockCount = 0;

 private:
  // What became of one attempt at a DNLOAD: accepted; over, with the status published; to be made
  // again; or not to be made again because the device does not answer.
  enum class Attempt { Accepted, Over, Again, Broken };

  void CountBlocks();
  i32 SendCommandBlock(OperationContext& work, u8 command);
  Attempt AttemptTransfer(OperationContext& work, u8 command);
  bool LeaveErrorState(OperationContext& work);
  u32 SendDownload(OperationContext& work, const DfuElement& element, u8 command);
  Attempt RecoverFromDownload(OperationContext& work);
  Attempt ReadReply(OperationContext& work);
  Attempt JudgeReply(OperationContext& work);
  Attempt TryAgain(OperationContext& work);
  bool ReadStatusOrFail(OperationContext& work);

  // The published context, shared with whoever calls GetContext; contextMutex guards all of it.
  OperationContext context{};
  KernelHandle contextMutex;
};

// The element that the working copy is at, or null when the image is missing or not valid or has no
// such element.
const DfuElement* CurrentElement(const OperationContext& work);
