// Finds the keyboard's HID collection that takes the enter-DFU report.
//
// A keyboard shows several collections with the same vendor and product id; the one wanted has
// usage page 1 (Generic Desktop) and usage 0. Called by the enter-DFU command on the thread of the
// update decision, which holds the update lock.
#pragma once

#include <windows.h>

#include "common/types.h"

// The opened collection, or INVALID_HANDLE_VALUE while there is none. It stays open after the
// report has been sent, until the next discovery or the end of the process. Guarded by the update
// lock.
extern HANDLE keyboardHandle;

// Searches the present interfaces of the class and opens the first matching collection.
//
// The class is the HID class (from HidD_GetHidGuid). *result holds what the previous search left
// there, at first INVALID_HANDLE_VALUE: it is closed before the search starts, because nobody sends
// on it any more. Returns 1 with the open handle in *result, which the next search closes, or 0
// with INVALID_HANDLE_VALUE in it. Every failure has written its line.
i32 FindHidDevice(GUID* classGuid, HANDLE* result);
