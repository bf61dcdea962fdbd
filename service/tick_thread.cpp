#include "service/tick_thread.h"

#include <cstdio>

#include "common/handles.h"
#include "dfuengine/update_session.h"
#include "service/update_decision.h"

namespace {

constexpr DWORD TickIntervalMs = 3000;

DWORD WaitForTick(HANDLE tickEvent) {
  if (tickEvent != nullptr) {
    return WaitForSingleObject(tickEvent, TickIntervalMs);
  }
  Sleep(TickIntervalMs);
  return WAIT_TIMEOUT;
}

void Tick() {
  // Spelled as it always was. Standard output may be a pipe, and a line kept back is of no use to
  // whoever watches it.
  std::printf("elasped time :: 3000ms !!!\n");
  std::fflush(stdout);

  // A second arrival that found a healthy operation was put off; when that operation has failed
  // after all, a device that is still there waits for its update. Asked a tick later: one that has
  // just left is off the lists by now.
  if (TakeRememberedArrival()) {
    PrepareDfuUpdate();
  }
  SessionStep();
}

}  // namespace

DWORD WINAPI TickThread(LPVOID) {
  const KernelHandle tickEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  bool waitFailed = false;

  for (;;) {
    const DWORD result = WaitForTick(tickEvent.get());
    if (result == WAIT_OBJECT_0) {
      return 0;
    }
    if (result == WAIT_TIMEOUT) {
      waitFailed = false;
      Tick();
      continue;
    }
    // Any other result waits again. A wait that fails every time comes back at once, and must not
    // keep a processor busy.
    if (waitFailed) {
      Sleep(TickIntervalMs);
    }
    waitFailed = true;
  }
}
