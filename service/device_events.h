// What the service does when a keyboard or the keyboard's DFU device comes or goes.
//
// Called by the system on its notification threads, from the registration in the start-up sequence
// to the end of the process, also while the service is paused. An arrival does all its work before
// it returns, and may wait for other work to end; a note that others wait for is therefore taken
// first of all and without a lock. Only the action is looked at; the result is always
// ERROR_SUCCESS.
#pragma once

#include <windows.h>

#include <cfgmgr32.h>

// The keyboard interface class. Any keyboard's arrival runs the update decision, which finds ours
// by itself; a removal tells decisions that wait that a keyboard has left.
DWORD CALLBACK OnKeyboardInterfaceEvent(HCMNOTIFICATION notification, PVOID context,
                                        CM_NOTIFY_ACTION action, PCM_NOTIFY_EVENT_DATA eventData,
                                        DWORD eventDataBytes);

// The class of what a keyboard shows while it is in DFU mode. An arrival prepares the update; a
// removal is marked, so that the next arrival can tell a keyboard that came back from one announced
// twice.
DWORD CALLBACK OnDfuInterfaceEvent(HCMNOTIFICATION notification, PVOID context,
                                   CM_NOTIFY_ACTION action, PCM_NOTIFY_EVENT_DATA eventData,
                                   DWORD eventDataBytes);
