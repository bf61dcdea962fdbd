// The status codes of the file, image, discovery and protocol layers.
//
// Orchestration, keyboard and notifier operations return 1 for success and 0 for failure instead.
#pragma once

#include "common/types.h"

inline constexpr u32 StatusSuccess = 0x12340000;

// No WinUSB interface handle: the request was not sent.
inline constexpr u32 StatusNoInterfaceHandle = 0x12340002;

// The DFU device cannot be opened.
inline constexpr u32 StatusDeviceNotOpened = 0x12340005;

// Nothing to work on: image not valid, element out of range, block number 1, refused operation
// code, no current operation, or a string that is not a memory map.
inline constexpr u32 StatusNothingToWorkOn = 0x12345008;

// The device is in a DFU state that the step does not accept.
inline constexpr u32 StatusUnexpectedState = 0x12345009;

// A request failed, its retries are used up, the alternate setting was not selected, or the
// configuration descriptor was not readable.
inline constexpr u32 StatusRequestFailed = 0x1234500A;

// The device reported an error in bStatus after a DNLOAD.
inline constexpr u32 StatusDeviceError = 0x1234500B;

// The .dfu file's prefix, suffix, CRC or a target prefix is unreadable or wrong.
inline constexpr u32 StatusBadFile = 0x12346005;

// An image that is not registered, a missing memory map, an image that is not valid, or no memory
// for a new image.
inline constexpr u32 StatusNoImage = 0x12346008;

// The elements of a target cannot be read.
inline constexpr u32 StatusBadElements = 0x1234600D;

// The .dfu file cannot be opened.
inline constexpr u32 StatusFileNotOpened = 0x1234600E;
