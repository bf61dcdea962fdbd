#include "keyboard/keyboard_departure.h"

#include <windows.h>

#include <atomic>

#include "common/types.h"

namespace {

constexpr u64 LongestDepartureMs = 2000;

// Between two looks: short against the time that a keyboard takes to come back.
constexpr DWORD DeparturePollMs = 10;

constexpr u64 NobodyLeaves = ~u64{0};

// When the report that somebody leaves after was sent, in milliseconds since Windows was started.
constinit std::atomic<u64> leavingSinceMs{NobodyLeaves};

bool KeyboardIsLeaving() {
  const u64 sinceMs = leavingSinceMs.load();
  return sinceMs != NobodyLeaves && GetTickCount64() - sinceMs < LongestDepartureMs;
}

}  // namespace

void NoteReportBegins() {
  leavingSinceMs.store(GetTickCount64());
}

void NoteReportRefused() {
  leavingSinceMs.store(NobodyLeaves);
}

void NoteKeyboardLeft() {
  leavingSinceMs.store(NobodyLeaves);
}

void WaitUntilKeyboardHasLeft() {
  while (KeyboardIsLeaving()) {
    Sleep(DeparturePollMs);
  }
}
