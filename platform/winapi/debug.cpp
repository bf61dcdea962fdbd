// Debug output and the last error.
#include <windows.h>

#include "platform/winapi/platform_call.h"

using platform::Call;
using platform::SureCall;
using platform::TheMachine;

namespace {

// Each thread has its own, as on Windows. A call that succeeds leaves it as it was.
thread_local DWORD lastError = ERROR_SUCCESS;

}  // namespace

DWORD WINAPI GetLastError() {
  return lastError;
}

VOID WINAPI SetLastError(DWORD dwErrCode) {
  lastError = dwErrCode;
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
