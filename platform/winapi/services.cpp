// The service control calls.
#include <windows.h>

#include "platform/winapi/platform_call.h"

using platform::Call;
using platform::LastErrorCall;
using platform::ServiceRegistration;
using platform::TheMachine;

// Returns when the service has reported that it is stopped. The control handler runs on this
// thread in the meantime, as it does on Windows in a process with one service.
BOOL WINAPI StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* lpServiceStartTable) {
  const LastErrorCall<BOOL> call(Call::StartServiceCtrlDispatcherW);
  call.Note(lpServiceStartTable);
  if (call.fails()) {
    return call.Fail();
  }
  if (lpServiceStartTable[1].lpServiceName != nullptr) {
    return call.Refuse("a second service in the process is");
  }
  if (!TheMachine().services.Dispatch(lpServiceStartTable[0])) {
    return call.Fail(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
  }
  return TRUE;
}

// A service in a process of its own is known by its handle alone: Windows does not compare the
// name either.
SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerExW(LPCWSTR lpServiceName,
                                                           LPHANDLER_FUNCTION_EX lpHandlerProc,
                                                           LPVOID lpContext) {
  const LastErrorCall<SERVICE_STATUS_HANDLE> call(Call::RegisterServiceCtrlHandlerExW);
  call.Note(lpServiceName, lpHandlerProc, lpContext);
  if (call.fails()) {
    return call.Fail();
  }
  auto registration = std::make_shared<ServiceRegistration>();
  registration->name = lpServiceName;
  registration->handler = lpHandlerProc;
  registration->context = lpContext;
  void* const handle = TheMachine().handles.Open(registration);
  TheMachine().services.Register(registration);
  return static_cast<SERVICE_STATUS_HANDLE>(handle);
}

BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE hServiceStatus,
                             LPSERVICE_STATUS lpServiceStatus) {
  const LastErrorCall<BOOL> call(Call::SetServiceStatus);
  call.Note(hServiceStatus, lpServiceStatus);
  if (call.fails()) {
    return call.Fail();
  }
  if (call.Get<ServiceRegistration>(hServiceStatus) == nullptr) {
    return call.Fail(ERROR_INVALID_HANDLE);
  }
  TheMachine().services.Report(*lpServiceStatus);
  return TRUE;
}
