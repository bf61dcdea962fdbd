// The record through which a DFU operation and the rest of the service talk.
//
// The launcher fills guidA, guidB, operationCode, image and devicePath. The operation's thread
// works on a private copy and publishes it after every change (OperationThread::SetContext); the
// session driver reads the published copy (GetContext) for progress, phase and outcome. Copied as a
// whole.
#pragma once

#include <windows.h>

#include <winusb.h>

#include <cstddef>
#include <type_traits>

#include "common/types.h"

class DfuImage;

// The six bytes of a GETSTATUS reply, in wire order. GETSTATE writes into bState alone.
struct DfuStatus {
  u8 bStatus;
  u8 bwPollTimeout[3];
  u8 bState;
  u8 iString;
};
static_assert(sizeof(DfuStatus) == 6 && alignof(DfuStatus) == 1);

// The device's poll time, in milliseconds.
constexpr u32 PollTimeoutMs(const DfuStatus& dfuStatus) {
  return u32{dfuStatus.bwPollTimeout[0]} | u32{dfuStatus.bwPollTimeout[1]} << 8 |
         u32{dfuStatus.bwPollTimeout[2]} << 16;
}

// Values of bState. The device sends the first group; the second marks how far a step has come
// before the device has been asked.
inline constexpr u8 dfuIDLE = 2;
inline constexpr u8 dfuDNBUSY = 4;
inline constexpr u8 dfuDNLOAD_IDLE = 5;
inline constexpr u8 dfuMANIFEST_SYNC = 6;
inline constexpr u8 dfuMANIFEST = 7;
inline constexpr u8 dfuMANIFEST_WAIT_RESET = 8;
inline constexpr u8 dfuERROR = 10;

inline constexpr u8 StateStarted = 0xFE;
inline constexpr u8 StateNotStarted = 0xFF;

// Values of operationCode; 0 is taken for OperationLeave, 2 is refused.
inline constexpr u32 OperationLeave = 1;
inline constexpr u32 OperationRefused = 2;
inline constexpr u32 OperationErase = 3;
inline constexpr u32 OperationDownload = 4;

// Values of phase: the stage, or the request that is being sent.
inline constexpr u32 PhaseOpening = 0x0A000000;
inline constexpr u32 PhaseDnload = 0x0D000000;
inline constexpr u32 PhaseGetStatus = 0x0F000000;
inline constexpr u32 PhaseClearStatus = 0x10000000;
inline constexpr u32 PhaseGetState = 0x11000000;
inline constexpr u32 PhaseAbort = 0x12000000;
inline constexpr u32 PhaseSelecting = 0x13000000;
inline constexpr u32 PhaseLeaving = 0x14000000;
inline constexpr u32 PhaseLeft = 0x16000000;
inline constexpr u32 PhaseNotStarted = 0xFFFFFFFF;

// DfuSe commands, the first byte of the data stage of block 0; the address follows.
inline constexpr u32 CommandBlockBytes = 5;
inline constexpr u8 CommandSetAddress = 0x21;
inline constexpr u8 CommandErase = 0x41;

// Data blocks are numbered from 2 on: block 0 carries a command and block 1 is never sent.
inline constexpr u16 CommandBlock = 0;
inline constexpr u16 UnusedBlock = 1;
inline constexpr u16 FirstDataBlock = 2;

// So many data blocks fit in the 16-bit block number; one more would come round to block 0.
inline constexpr u32 MaximumDataBlocks = 0x10000 - FirstDataBlock;

// percent of an operation that has done its work, and the most that one still at work shows.
inline constexpr u8 PercentDone = 100;
inline constexpr u8 PercentAtWork = 99;

inline constexpr std::size_t DevicePathBytes = 260;

// What an update keeps of its device's path; a longer one is cut.
inline constexpr std::size_t DevicePathKeptChars = 258;

struct OperationContext {
  // Carried along from one operation of an update to the next; nothing reads them.
  GUID guidA;
  GUID guidB;

  u32 operationCode;

  // The elements to work through. The operation does not own it; whoever finishes it releases it.
  DfuImage* image;

  // The path of the DFU interface that the update was prepared for, with its terminating zero.
  // Empty until the first operation is made when the listing could not tell it. Carried along from
  // one operation to the next. The device is always opened with OpenFirstDfuDevice, and must be
  // the one of this path.
  char devicePath[DevicePathBytes];

  // Publications so far; kept by SetContext, whatever a working copy says.
  u32 updateCount;

  // 0 to 100; 100 means that the work is done.
  u8 percent;

  // wTransferSize: data bytes a block.
  u16 transferSize;

  DfuStatus dfuStatus;
  u32 phase;

  // wBlockNum of the next DNLOAD and, for block 0, the DfuSe command. Together with the reserved
  // byte, which is 0, they form one 32-bit word that is stored as a whole.
  u16 blockNumber;
  u8 command;
  u8 reserved;

  // wLength of the next DNLOAD, in bytes.
  u32 length;

  // Device address of the current command or block.
  u32 address;

  u32 elementIndex;

  // StatusSuccess while all is well; otherwise the operation has failed.
  u32 status;

  // The device while the operation has it open, else null.
  HANDLE fileHandle;
  WINUSB_INTERFACE_HANDLE winUsbHandle;
};
static_assert(std::is_trivially_copyable_v<OperationContext>);
static_assert(offsetof(OperationContext, blockNumber) % 4 == 0);
static_assert(offsetof(OperationContext, command) == offsetof(OperationContext, blockNumber) + 2);
static_assert(offsetof(OperationContext, length) == offsetof(OperationContext, blockNumber) + 4);

// Copies a device path, cut to so many characters, and terminates it. maximumChars is below
// DevicePathBytes.
inline void CopyDevicePath(OperationContext& context, const char* path, std::size_t maximumChars) {
  std::size_t length = 0;
  while (length < maximumChars && path[length] != '\0') {
    context.devicePath[length] = path[length];
    ++length;
  }
  context.devicePath[length] = '\0';
}

// guidA of the erase and of the leave operation, and guidB of the latter.
inline constexpr GUID OperationGuidA = {
    0x3FE809AB, 0xFB91, 0x4CB5, {0xA6, 0x43, 0x69, 0x67, 0x0D, 0x52, 0x36, 0x6E}};
inline constexpr GUID LeaveOperationGuidB = {
    0xCB979912, 0x5029, 0x420A, {0xAE, 0xB1, 0x34, 0xFC, 0x0A, 0x7D, 0x57, 0x26}};
