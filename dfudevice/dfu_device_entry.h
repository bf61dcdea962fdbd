// Opens the keyboard's DFU interface for WinUSB and closes it again.
//
// The refresh of the DFU devices and the operation threads call in, each with an entry of its own;
// no state is shared and no lock is taken.
#pragma once

#include <windows.h>
#include <winusb.h>

#include "common/types.h"

inline constexpr u32 DfuPathChars = 260;

struct DfuDeviceEntry {
  // 1 from a successful opening to the closing, else 0.
  i32 opened;
  // Null unless opened is 1.
  WINUSB_INTERFACE_HANDLE winUsbHandle;
  // INVALID_HANDLE_VALUE unless opened is 1.
  HANDLE fileHandle;
  // The interface path that was to be opened, at most 259 UTF-16 characters and a NUL; empty when
  // there is none.
  WCHAR path[DfuPathChars];
};

// Lists the DFU interfaces again and opens the first one, whatever the entry held before.
//
// entry.opened tells the outcome. After a 1 the caller owns both handles until it closes them with
// CloseDfuDevice (or WinUsb_Free, then CloseHandle). After a 0 there is nothing to close. The
// listing writes its lines when it fails; a device that cannot be opened is for the caller to
// report.
void OpenFirstDfuDevice(DfuDeviceEntry& entry);

// Frees the WinUSB handle, then closes the file handle, and marks the entry as not open. Does
// nothing when it is not open.
void CloseDfuDevice(DfuDeviceEntry& entry);
