// Asks the keyboard to restart in DFU mode.
//
// Called by the update decision, on its thread and under the update lock. A keyboard that obeys
// vanishes as a HID device and comes back as a DFU device a little later.
#pragma once

#include "common/types.h"

// Finds the keyboard's collection anew and sends the report on it. Returns 1 when the report was
// sent, else 0; the outcome has been written to the debug output. The send is tried, and fails,
// even when the collection was not found.
i32 EnterDfuMode();

// Sends the report on keyboardHandle as it stands. Returns 1 when it was sent, else 0.
i32 SendEnterDfuReport();
