// The service control calls.
#include <windows.h>

#include "platform/machine/machine.h"

using platform::Call;
using platform::EnterCall;
using platform::HandleKind;
using platform::ServiceRegistration;
using platform::TheMachine;

BOOL WINAPI StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* lpServiceStartTable) {
  if (const DWORD error = EnterCall(Call::StartServiceCtrlDispatcherW)) {
    SetLastError(error);
    return FALSE;
  }
  if (lpServiceStartTable[1].lpServiceName != nullptr) {
    TheMachine().faults.Add("StartServiceCtrlDispatcherW: one service a process is modelled");
    SetLastError(ERROR_NOT_SUPPORTED);
    return FALSE;
  }
  if (!TheMachine().services.Dispatch(lpServiceStartTable[0])) {
    SetLastError(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
    return FALSE;
  }
  return TRUE;
}

SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerExW(LPCWSTR lpServiceName,
                                                           LPHANDLER_FUNCTION_EX lpHandlerProc,
                                                           LPVOID lpContext) {
  if (const DWORD error = EnterCall(Call::RegisterServiceCtrlHandlerExW)) {
    SetLastError(error);
    return nullptr;
  }
  auto registration = std::make_shared<ServiceRegistration>();
  registration->name = lpServiceName;
  registration->handler = lpHandlerProc;
  registration->context = lpContext;
  void* const handle = TheMachine().handles.Open(HandleKind::ServiceStatus, registration);
  TheMachine().services.Register(registration);
  return static_cast<SERVICE_STATUS_HANDLE>(handle);
}

BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE hServiceStatus,
                             LPSERVICE_STATUS lpServiceStatus) {
  if (const DWORD error = EnterCall(Call::SetServiceStatus)) {
    SetLastError(error);
    return FALSE;
  }
  if (TheMachine().handles.Find(hServiceStatus, HandleKind::ServiceStatus, "SetServiceStatus") ==
      nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  TheMachine().services.Report(*lpServiceStatus);
  return TRUE;
}
