// The DFU interfaces that are present, and the refresh that the rest of the service builds on: is
// there a usable DFU device, and what does its memory look like?
//
// The update decision, the preparation of an update and the session driver call it; all of them
// hold the update lock, which guards dfuDeviceList and memoryMapTable.
#pragma once

#include "common/types.h"
#include "dfudevice/interface_listing.h"

// What the last refresh listed. Written by RefreshDfuDevices only.
extern DfuDeviceList dfuDeviceList;

// Lists the DFU interfaces into dfuDeviceList, opens the first one, decodes its memory maps into
// memoryMapTable, together with the path that was opened, and closes it again. A refresh does not
// fall back on another device than the first.
//
// The opening lists once more. When keyboards come and go in between, dfuDeviceList tells of others
// than the one whose maps and path memoryMapTable holds; the latter belong together.
//
// Returns 1 when all of that worked, else 0. After a 0 memoryMapTable is empty, except when the
// listing itself failed: then it keeps what the refresh before left. Writes what it found, or what
// went wrong, to the debug output.
i32 RefreshDfuDevices();
