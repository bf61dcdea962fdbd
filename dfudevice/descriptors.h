// Reads the descriptors of an opened DFU device: the memory map of each of its alternate settings
// and the size of its transfers.
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
// Returns StatusSuccess, or StatusRequestFailed when the configuration descriptor set cannot be
// read or is not whole; transferSize is untouched then. May be called on any thread, without the
// update lock.
u32 ReadTransferSize(WINUSB_INTERFACE_HANDLE winUsbHandle, u16& transferSize);
