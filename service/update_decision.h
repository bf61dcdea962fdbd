// Decides whether the keyboard gets new firmware, and starts the update.
//
// The service entry calls in once at start-up, the notification threads on every arrival, and
// TickThread for an arrival that had to wait. Both operations take the update lock, so that
// decisions and preparations run one after the other and none is dropped.
#pragma once

#include "common/types.h"

// The battery's charge in percent as the latest decision read it, 255 when it is not known. Guarded
// by the update lock.
extern i32 batteryPercent;

// The update decision: compares the keyboard's version with the package's and, when the package is
// strictly newer and the battery holds enough, tells the user and sends the keyboard into DFU mode.
// The arrival of the keyboard as a DFU device then goes on with the update.
//
// With atStartup exactly 1 it first serves a keyboard that already is in DFU mode, and after an
// enter-DFU request it waits 5000 ms and prepares the update itself, because DFU arrivals are not
// watched yet. The lock is not held during that wait.
void EvaluateUpdate(i32 atStartup);

// Finds the package file and the DFU device, prepares the image to write and launches the erase.
// A healthy operation that already runs is left alone. No package file ends it without a word;
// without a usable DFU device the user is told.
//
// Neither does anything once the service has been told to stop, or when the lock cannot be had.
void PrepareDfuUpdate();
