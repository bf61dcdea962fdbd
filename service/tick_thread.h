// The service's periodic thread: every 3000 ms it drives the running update one step on.
//
// Started once by the start-up sequence and never joined; it ends with the process.
#pragma once

#include <windows.h>

// The thread procedure; the parameter is not used. The 3000 ms count from the end of one step, so a
// step that takes long puts off the ticks behind it. Returns 0 when its event is signalled, which
// nothing does. Without an event it sleeps between the ticks instead.
DWORD WINAPI TickThread(LPVOID parameter);
