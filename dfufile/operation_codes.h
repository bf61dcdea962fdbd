// The codes of the DFU operations, and which sectors of a memory map each of them works on. A
// sector that is not selected is left out whatever the code.
#pragma once

#include "common/types.h"

// No sector. Launched, it leaves DFU mode like OperationLeave.
inline constexpr u32 OperationNone = 0;

// Leaves DFU mode. The readable sectors.
inline constexpr u32 OperationLeave = 1;

// Never launched. The readable sectors.
inline constexpr u32 OperationRefused = 2;

// Erases. The erasable sectors.
inline constexpr u32 OperationErase = 3;

// Writes. The writable sectors.
inline constexpr u32 OperationDownload = 4;

// Never launched, nor is any code above it. Every sector.
inline constexpr u32 OperationEverySector = 5;

constexpr bool LeavesDfuMode(u32 operationCode) {
  return operationCode <= OperationLeave;
}
