// The removals of DFU devices that were told, and which of them still count.
//
// A removal does not say whose it was: that of the keyboard being updated, of another one, or of
// one long back that is told late. A device that answers has not been removed, so an answer takes
// back what was told before the request went out.
//
// Any thread, no lock.
#pragma once

#include "common/types.h"

// A DFU interface was removed. Called by the notification callback.
void NoteDfuRemoval();

// How many removals have been told so far.
u32 DfuRemovalsTold();

// Whether one of these stands: nobody has taken it back.
bool DfuRemovalStands(u32 removalsTold);

// Takes back that many removals, the first ones. Called for a request that was answered with what
// DfuRemovalsTold gave before it was sent, and at the beginning of an update.
void ForgetDfuRemovals(u32 removalsTold);
