// The values that tie the operations of one update together.
//
// The image preparation, the update decision and the session driver share them from several
// threads; the update lock guards all three.
#pragma once

#include <atomic>

#include "common/types.h"

class DfuImage;

// The operation that the session runs, or 0. Written through LaunchOperation's out-parameter. After
// a failed launch it may name an operation that is gone. A tick looks at it without the lock.
extern std::atomic<u32> currentOperationId;

// The firmware to write: a registered image or null. Made before the erase is launched, read by the
// download's thread, null again when the download has ended.
extern DfuImage* upgradeImage;

// Whether this update has told the user "DISCONNECT" already: 1 or 0.
extern u32 disconnectNotified;
