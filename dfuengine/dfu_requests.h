// The DFU class requests on interface 0 of the device, each one WinUSB control transfer.
//
// Called on the thread of the operation that has the device open, and by Stop once that thread has
// ended. Each waits for its transfer with WinUSB's own time-out and takes no lock.
//
// Results: 1 when the device took or answered the request, 0 when it failed,
// StatusNoInterfaceHandle when there was no interface handle and nothing was sent. Only 1 is
// success; compare with it.
#pragma once

#include <windows.h>

#include <winusb.h>

#include "common/types.h"
#include "dfuengine/dfu_protocol.h"

inline constexpr u32 RequestSucceeded = 1;

// DNLOAD of one block; data may be null when length is 0. length is wLength, in bytes.
u32 RequestDownload(WINUSB_INTERFACE_HANDLE winUsbHandle, u16 blockNumber, u8* data, u16 length);

// GETSTATUS into dfuStatus. After a failure, or for what a short answer leaves out, it keeps what
// it held. A null dfuStatus counts as a missing handle.
//
// A device that answers dfuMANIFEST or dfuMANIFEST-WAIT-RESET is about to reset: the handles are
// closed at once and both are null afterwards, so that no later request or Stop uses them again.
u32 RequestStatus(HANDLE& fileHandle, WINUSB_INTERFACE_HANDLE& winUsbHandle, DfuStatus* dfuStatus);

u32 RequestClearStatus(WINUSB_INTERFACE_HANDLE winUsbHandle);

// GETSTATE into bState, which keeps what it held after a failure.
u32 RequestState(WINUSB_INTERFACE_HANDLE winUsbHandle, u8& bState);

u32 RequestAbort(WINUSB_INTERFACE_HANDLE winUsbHandle);

// Closes the interface, then the device file, and sets both to null. A null handle is passed over.
void CloseDfuHandles(HANDLE& fileHandle, WINUSB_INTERFACE_HANDLE& winUsbHandle);
