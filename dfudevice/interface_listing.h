// The list of the DFU interfaces that are present, and how it is made. The refresh keeps one, the
// opening of the first device makes one for itself.
//
// Holds no state: each caller gives a list of its own, so operation threads and a refresh may list
// at the same time.
#pragma once

#include <windows.h>

#include "common/types.h"

// What a list has room for.
inline constexpr i32 DfuListSlots = 128;
inline constexpr u32 DfuListPathBytes = 260;

struct DfuDeviceList {
  // Slot i holds the path of the i-th interface in the ANSI code page, NUL-terminated. A slot is
  // empty when the interface's instance id was not readable or the path does not fit.
  char paths[DfuListSlots][DfuListPathBytes];
  // The number of interfaces, empty slots and those beyond the last slot included.
  i32 count;
};

// The most characters of a device description that a log line shows.
inline constexpr u32 DisplayNameChars = 80;

// A device's description for log lines, NUL-terminated.
struct DisplayName {
  WCHAR text[DisplayNameChars + 1];
};

// Empties list and fills it with the interfaces of the DFU class that are present. displayName
// becomes the description of the first one, the one that is opened, or "(Unnamed DFU device)" when
// it cannot be read; it is empty when there is no interface.
//
// Returns false, with a line in the debug output and an empty list, when the size of the list
// cannot be had or there is no memory for it.
bool ListDfuInterfaces(DfuDeviceList& list, DisplayName& displayName);
