// Turns the firmware package into work for the DFU device.
#pragma once

// Reads the target for alternate setting 0 from the file at packagePath, cuts one copy of it to the
// device's writable sectors (upgradeImage) and turns the other into the list of erasable sectors
// that it touches, and launches the erase (currentOperationId).
//
// Called under the update lock, after a successful refresh of the DFU device and with no session
// under way. Without a usable target it writes one line, starts nothing and leaves no image; the
// earlier upgradeImage is released only once a target was found.
void PrepareTargetImage();
