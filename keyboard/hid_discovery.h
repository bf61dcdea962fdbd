// Finds the keyboard's HID collection that takes the enter-DFU report.
//
// A keyboard shows several collections with the same vendor and product id; the one wanted has
// usage page 1 (Generic Desktop) and usage 0. Called by the enter-DFU command on the thread of the
// update decision, which holds the decision's lock.
#pragma once

#include <windows.h>

#include "common/types.h"

// The collection that the report goes to; INVALID_HANDLE_VALUE but for the time of one request.
// Guarded by the decision's lock.
extern HANDLE keyboardHandle;

// Searches the present interfaces of the class and opens the first matching collection.
//
// The class is the HID class (from HidD_GetHidGuid). Returns 1 with the open handle in *result,
// which the caller closes, or 0 with INVALID_HANDLE_VALUE in it. Nothing is read from *result.
// Every failure has written its line.
i32 FindHidDevice(GUID* classGuid, HANDLE* result);
