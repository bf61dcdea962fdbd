// What goes over the wire between the service and a DFU device: the class requests of USB DFU 1.1,
// and the commands and block numbers that DfuSe lays over DNLOAD.
//
// Constants and plain values only. The names of the requests and states are those of the standard.
#pragma once

#include "common/types.h"

// bmRequestType of a class request to an interface.
inline constexpr u8 HostToDevice = 0x21;
inline constexpr u8 DeviceToHost = 0xA1;

// bRequest of the requests that are in use.
inline constexpr u8 DFU_DNLOAD = 1;
inline constexpr u8 DFU_GETSTATUS = 3;
inline constexpr u8 DFU_CLRSTATUS = 4;
inline constexpr u8 DFU_GETSTATE = 5;
inline constexpr u8 DFU_ABORT = 6;

// What GETSTATUS answers, byte for byte. GETSTATE answers bState alone.
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

// The values of bState that something depends on.
inline constexpr u8 dfuIDLE = 2;
inline constexpr u8 dfuDNBUSY = 4;
inline constexpr u8 dfuDNLOAD_IDLE = 5;
inline constexpr u8 dfuMANIFEST = 7;
inline constexpr u8 dfuMANIFEST_WAIT_RESET = 8;
inline constexpr u8 dfuERROR = 10;

// DfuSe commands, the first byte of the data stage of block 0; the address follows.
inline constexpr u32 CommandBlockBytes = 5;
inline constexpr u8 CommandSetAddress = 0x21;
inline constexpr u8 CommandErase = 0x41;

// Data blocks are numbered from 2 on: block 0 carries a command and block 1 is never sent.
inline constexpr u16 CommandBlock = 0;
inline constexpr u16 UnusedBlock = 1;
inline constexpr u16 FirstDataBlock = 2;

// The most data blocks of an element: block numbers are 16 bits wide, and the next one would
// come round to block 0.
inline constexpr u32 MaximumDataBlocks = 0x10000 - FirstDataBlock;

// How many data blocks the bytes make; a last, short block counts. transferSize is not 0.
constexpr u64 BlockCount(u32 sizeBytes, u16 transferSize) {
  return (u64{sizeBytes} + transferSize - 1) / transferSize;
}
