// Learns which firmware the keyboard runs, and on which model and hardware.
//
// The keyboard carries them as single digits in its HID product string. Called by the update
// decision, which holds the decision's lock and reads the result right after the call.
#pragma once

#include "common/firmware_version.h"

// What the last reading found. Guarded by the decision's lock; written by ReadKeyboardVersion only.
extern FirmwareVersion deviceVersion;

// Fills deviceVersion from the keyboard's product string.
//
// Each collection of the keyboard is asked, and the last one that yields its string decides. All
// fields are 0 when none does: an absent keyboard is no error here.
void ReadKeyboardVersion();
