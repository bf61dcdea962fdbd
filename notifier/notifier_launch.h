// Tells the logged-on user how the update goes, through the notifier program.
//
// Called by the update decision and the arrival callbacks, by the session step and by the thread
// that makes the keyboard leave DFU mode, on several threads at once if need be: it uses its own
// locals, reads packageFolder and takes no lock.
#pragma once

#include "common/types.h"
#include "notifier/notifier_message.h"

// Starts the notifier from the driver package folder, in the session and on the desktop of the
// logged-on user, with the message's word as its whole command line.
//
// The notifier is not waited for and nothing is left open. Returns 0 in every case; what went wrong
// has been written to the debug output.
i32 LaunchNotifier(const NotifierMessage& message);
