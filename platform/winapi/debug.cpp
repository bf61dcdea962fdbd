// Debug output and the last error.
#include <windows.h>

#include "platform/winapi/platform_call.h"

using platform::Call;
using platform::Scheduler;
using platform::SureCall;
using platform::TheMachine;

// Each thread has its own, as on Windows. A call that succeeds leaves it as it was.
DWORD WINAPI GetLastError() {
  return Scheduler::Current()->lastError;
}

VOID WINAPI SetLastError(DWORD dwErrCode) {
  Scheduler::Current()->lastError = dwErrCode;
}

// With no debugger attached Windows looks for somebody who listens, and leaves the error of not
// finding anyone. So a caller who writes first and asks for the last error then gets a wrong one.
VOID WINAPI OutputDebugStringW(LPCWSTR lpOutputString) {
  const SureCall call(Call::OutputDebugStringW);
  call.Note(lpOutputString);
  if (lpOutputString == nullptr) {
    call.AddFault("null");
    return;
  }
  TheMachine().debugLog.Add({TheMachine().scheduler.NowMs(), lpOutputString});
  SetLastError(ERROR_FILE_NOT_FOUND);
}
