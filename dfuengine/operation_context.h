// What a DFU operation is to do, and how far it has come.
//
// Whoever launches it sets guidA, guidB, operationCode, image and devicePath. Its thread changes a
// copy of its own and publishes that (OperationThread::SetContext); others see only what was
// published (GetContext). Copied as a whole.
#pragma once

#include <windows.h>

#include <winusb.h>

#include <cstddef>
#include <type_traits>

#include "common/types.h"
#include "dfuengine/dfu_protocol.h"
#include "dfufile/operation_codes.h"

class DfuImage;

// Values that a step writes into bState, to mark how far it has come before the device has been
// asked. None of them is a state of the protocol.
inline constexpr u8 StateStarted = 0xFE;
inline constexpr u8 StateNotStarted = 0xFF;

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

// percent of an operation that has done its work, and the most that one still at work shows.
inline constexpr u8 PercentDone = 100;
inline constexpr u8 PercentAtWork = 99;

inline constexpr std::size_t DevicePathBytes = 260;

struct OperationContext {
  // Carried along from one operation of an update to the next; nothing reads them.
  GUID guidA;
  GUID guidB;

  // One of dfufile/operation_codes.h.
  u32 operationCode;

  // The elements to work through. The operation does not own it; whoever finishes it releases it.
  DfuImage* image;

  // The path of the DFU interface that the update was prepared for, with its terminating zero.
  // Carried along from one operation to the next. The device is always opened with
  // OpenFirstDfuDevice, and must be the one of exactly this path; without a path there is none.
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

  // Where in the device the command or block that is being sent goes.
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

// Copies a device path, as far as it fits, and terminates it.
inline void CopyDevicePath(OperationContext& context, const char* path) {
  std::size_t length = 0;
  while (length < DevicePathBytes - 1 && path[length] != '\0') {
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
