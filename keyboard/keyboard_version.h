// Reads the keyboard's firmware version, model id and hardware revision.
//
// The keyboard carries them as single digits in its HID product string. Called by the update
// decision, which holds the update lock and reads the result right after the call.
#pragma once

#include "common/firmware_version.h"

// What the last reading found. Guarded by the update lock; written by ReadKeyboardVersion only.
extern FirmwareVersion deviceVersion;

// Fills deviceVersion from the keyboard's product string.
//
// Every HID interface with the keyboard's vendor and product id is asked, and the last one that
// yields its string decides. All fields are 0 when none does: an absent keyboard is no error here.
void ReadKeyboardVersion();
