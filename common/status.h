// What became of work on files, images and DFU devices. Everything above that (decision, keyboard,
// notifier) answers 1 when it worked and 0 when it did not.
#pragma once

#include "common/types.h"

inline constexpr u32 StatusSuccess = 0x12340000;

// Nothing went out, for want of an open device.
inline constexpr u32 StatusNoInterfaceHandle = 0x12340002;

// The device did not open, or another one is in its place.
inline constexpr u32 StatusDeviceNotOpened = 0x12340005;

// The call makes no sense: there is no such element, block, operation or map to work on.
inline constexpr u32 StatusNothingToWorkOn = 0x12345008;

// Here the device should be in another bState.
inline constexpr u32 StatusUnexpectedState = 0x12345009;

// The device did not do what it was asked, however often; or the operation could not be made.
inline constexpr u32 StatusRequestFailed = 0x1234500A;

// The device took a block and then said in its bStatus that it went wrong.
inline constexpr u32 StatusDeviceError = 0x1234500B;

// The .dfu file is none, is damaged, or has no such target.
inline constexpr u32 StatusBadFile = 0x12346005;

// There is no image to work with, no map to cut it to, or not the memory for it.
inline constexpr u32 StatusNoImage = 0x12346008;

// A target's elements end before they should, or memory is short for them.
inline constexpr u32 StatusBadElements = 0x1234600D;

// There is no .dfu file to be read.
inline constexpr u32 StatusFileNotOpened = 0x1234600E;
