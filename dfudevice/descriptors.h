// Asks an opened DFU device for its descriptors: what memory lies behind its alternate settings,
// and how many bytes it takes at a time.
//
// Both operations work on a WinUSB handle that the caller has opened and closes afterwards. Neither
// writes a log line.
#pragma once

#include <windows.h>
#include <winusb.h>

#include "common/types.h"

// Decodes the memory map of every alternate setting and, only when that worked for all of them,
// installs the maps and the device's transfer size as memoryMapTable.
//
// The caller holds the update lock and has emptied memoryMapTable; it stays empty on any result
// but 1. Returns 1 on success; 0 when a descriptor cannot be read or makes no sense, or memory is
// short; StatusNothingToWorkOn when an alternate setting is not described by a memory map.
u32 DecodeMemoryMaps(WINUSB_INTERFACE_HANDLE winUsbHandle);

// Reads wTransferSize, the number of bytes in one DNLOAD block, as the device states it. A size of
// 0 is handed out like any other.
//
// Returns StatusSuccess, or StatusRequestFailed when the device does not hand out its configuration
// set, or not all of it; transferSize is untouched then. May be called on any thread, without the
// update lock.
u32 ReadTransferSize(WINUSB_INTERFACE_HANDLE winUsbHandle, u16& transferSize);
