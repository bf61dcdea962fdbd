// From the firmware package to a device that is being erased.
#pragma once

// Takes the first target for alternate setting 0 in the file at packagePath and makes two images of
// it: upgradeImage, which is what can be written, and the sectors to erase. With both at hand it
// launches the erase (currentOperationId).
//
// Called under the update lock, after a successful refresh of the DFU device and with no session
// under way. Without a usable target it writes one line, starts nothing and leaves no image; the
// earlier upgradeImage is released only once a target was found.
void PrepareTargetImage();
