// The DFU interfaces that are present, and the refresh that the rest of the service builds on: is
// there a usable DFU device, and what does its memory look like?
//
// The update decision, the preparation of an update and the session driver call it; all of them
// hold the update lock, which guards dfuDeviceList and memoryMapTable.
#pragma once

#include "common/types.h"

inline constexpr i32 DfuListSlots = 128;
inline constexpr u32 DfuListPathBytes = 260;

struct DfuDeviceList {
  // Slot i holds the path of the i-th interface in the ANSI code page, NUL-terminated. A slot is
  // empty when the interface's instance id was not readable or the path does not fit.
  char paths[DfuListSlots][DfuListPathBytes];
  // The number of interfaces, empty slots and those beyond the last slot included.
  i32 count;
};

// What the last refresh listed. Written by RefreshDfuDevices only.
extern DfuDeviceList dfuDeviceList;

// Lists the DFU interfaces into dfuDeviceList, opens the first one, decodes its memory maps into
// memoryMapTable and closes it again. The service works with one DFU device at a time, always the
// first; a refresh does not fall back on another one.
//
// Returns 1 when all of that worked, else 0. After a 0 memoryMapTable is empty, except when the
// listing itself failed: then it keeps what the refresh before left. Writes what it found, or what
// went wrong, to the debug output.
i32 RefreshDfuDevices();
