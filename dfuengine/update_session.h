// The session driver: chains erase, download and leave, tells the user of a failure, and decides
// what a new arrival of the DFU device means to an update that is under way.
#pragma once

#include "dfuengine/session_values.h"

// Looks at the current operation once. When it has finished, ends it and starts the next one; when
// it has failed, tells the user and ends the session. Called by TickThread; takes the update lock
// unless no operation is current.
void SessionStep();

// A DFU interface was removed. Called by the notification callback, on any thread, without a lock:
// a session that has not ended by itself is not to be trusted with the device that arrives next.
void NoteDfuRemoval();

// Called under the update lock before the device is refreshed for a new update, once the package
// has been found. True: go on, no session stands in the way any more. False: a healthy update is
// under way and this arrival is a second one of the same device; it has been remembered.
//
// A session is ended when its operation is gone or has failed, when its thread is dead before the
// work is done, when it is a leave that is through, or when a DFU removal was noted since the mark
// was last cleared. The new update may tell the user "DISCONNECT" again.
bool ClearWayForUpdate();

// True once after an operation failed while an arrival was remembered and no removal came in
// between: the device is still there and wants another try. Called by TickThread, without a lock,
// before SessionStep: an arrival becomes due at the end of a session, and the removal that may have
// been the cause has until the next tick to be told.
bool TakeRememberedArrival();
