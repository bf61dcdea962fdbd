// The lock of the update that is under way.
//
// It guards packagePath, dfuDeviceList, memoryMapTable, the registries of files, images and
// operations, and the values of the update session. The notification callbacks, the service entry
// and TickThread reach those at the same time.
//
// PrepareDfuUpdate and SessionStep hold it from beginning to end, a decision only while it reads
// packagePath or serves a keyboard that is in DFU mode already. So a tick never waits for a
// keyboard interface that somebody else's driver is slow to open. Operation threads,
// LaunchNotifier, OpenFirstDfuDevice and the control handler never take it: its holder may wait for
// an operation thread to end. Whoever holds it takes no other lock of the service but a
// contextMutex.
//
// A thread that cannot get it does nothing: an update beside another one is worse than none.
#pragma once

#include "common/process_mutex.h"

extern ProcessMutex updateLock;
