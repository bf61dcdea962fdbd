// Debug output and the last error.
#include <windows.h>

#include "platform/machine/machine.h"

using platform::Call;
using platform::EnterSureCall;
using platform::TheMachine;

namespace {

thread_local DWORD lastError = ERROR_SUCCESS;

}  // namespace

DWORD WINAPI GetLastError() {
  return lastError;
}

VOID WINAPI SetLastError(DWORD dwErrCode) {
  lastError = dwErrCode;
}

VOID WINAPI OutputDebugStringW(LPCWSTR lpOutputString) {
  EnterSureCall(Call::OutputDebugStringW);
  if (lpOutputString == nullptr) {
    TheMachine().faults.Add("OutputDebugStringW: null");
    return;
  }
  TheMachine().debugLog.Write(lpOutputString);
  // With no debugger attached Windows looks for a listener and leaves the error of not finding one.
  SetLastError(ERROR_FILE_NOT_FOUND);
}
