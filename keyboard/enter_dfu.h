// Asks the keyboard to restart in DFU mode.
//
// Called by the update decision, on its thread and under the decision's lock. A keyboard that obeys
// vanishes as a HID device and comes back as a DFU device a little later.
#pragma once

#include "common/types.h"

// Finds the keyboard's collection anew, sends the report on it and closes it again: a keyboard that
// is pulled while somebody holds it open stays half alive in Windows. Returns 1 when the keyboard
// took the report, else 0; the outcome has been written to the debug output. Without a collection
// the send is tried all the same, and fails.
i32 EnterDfuMode();

// Sends the report on keyboardHandle as it stands, which stays open. Returns 1 when the call
// succeeded, else 0.
i32 SendEnterDfuReport();
