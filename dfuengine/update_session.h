// The session driver: chains erase, download and leave, tells the user of a failure, and decides
// what a new arrival of the DFU device means to an update that is under way.
#pragma once

#include "dfuengine/operation_context.h"
#include "dfuengine/session_values.h"

// Looks at the current operation once. When it has finished, ends it and starts the next one; when
// it has failed, tells the user and ends the session. Called by TickThread; takes the update lock
// unless no operation is current.
void SessionStep();

// Begins a session: launches the erase of the sectors in the list on the device whose memory maps
// memoryMapTable holds. Called by the preparation, under the update lock. The list, a registered
// image, is the session's from here on.
//
// A launch that fails tells nobody and starts nothing; its list stays until ReleaseLeftoverImages.
void LaunchErase(DfuImage* eraseList);

// Releases what a launch that failed has left over. Called under the update lock when a preparation
// begins; it releases upgradeImage itself, once it has another one.
void ReleaseLeftoverImages();

// An update that an arrival ended in the midst of its work.
struct InterruptedUpdate {
  bool any = false;
  // Of the device that it worked on, NUL-terminated.
  char devicePath[DevicePathBytes] = {};
};

// Called under the update lock before the device is refreshed for a new update, once the package
// has been found. True: go on, no session stands in the way any more. False: a healthy update is
// under way and this arrival is a second one of the same device; it has been remembered.
//
// A session is ended when its operation is gone or has failed, when its thread is dead before the
// work is done, when it is a leave whose request is out, or when a DFU device was removed and the
// session's own has not answered since (see device_removals.h). interrupted, empty at first, tells
// of an operation that had neither failed nor was through. The new update may tell the user
// "DISCONNECT" again.
bool ClearWayForUpdate(InterruptedUpdate& interrupted);

// Called under the update lock when the preparation is over. An update that was interrupted and
// does not go on with an operation on the same device has ended as failed, and the user is told so,
// unless the preparation has told "DISCONNECT" itself.
void TellUnlessResumed(const InterruptedUpdate& interrupted, bool disconnectTold);

// True once after an operation failed while an arrival was remembered, if a DFU interface is there
// still: it wants another try. When the interfaces cannot be listed, the next call asks again.
//
// Called by TickThread, without a lock, before SessionStep: an arrival becomes due at the end of a
// session, and a device that left has until the next tick to be gone from the lists.
bool TakeRememberedArrival();
