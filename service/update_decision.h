// Whether the keyboard is to get new firmware, and how its update begins.
//
// The service entry calls in once at start-up, the notification threads on every arrival, and
// TickThread for an arrival that had to wait. Decisions run one after the other under a lock of
// their own, which ticks do without; preparations run under the update lock. None is dropped.
#pragma once

#include "common/types.h"

// The battery's charge in percent as the latest decision read it, 255 when it is not known. Guarded
// by the decision's lock.
extern i32 batteryPercent;

// The update decision: compares the keyboard's version with the package's and, for older firmware
// and with enough charge, tells the user and sends the keyboard into DFU mode. The arrival of the
// keyboard as a DFU device then goes on with the update.
//
// A keyboard that an earlier decision has just sent off is waited for until it has left, 2000 ms
// after its report at the latest: it would be taken for one that still needs the report.
//
// With atStartup exactly 1 it first serves a keyboard that already is in DFU mode, and after an
// enter-DFU request it waits 5000 ms and prepares the update itself, because DFU arrivals are not
// watched yet. No lock is held during that wait.
void EvaluateUpdate(i32 atStartup);

// Finds the package file and the DFU device, prepares the image to write and launches the erase.
// A healthy operation that already runs is left alone. No package file ends it without a word;
// without a usable DFU device the user is told.
//
// Neither does anything once the service has been told to stop, or when a lock cannot be had.
void PrepareDfuUpdate();
