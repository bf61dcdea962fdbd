#include "service/service_main.h"

#include <cfgmgr32.h>

#include <cstring>

#include "common/debug_output.h"
#include "common/handles.h"
#include "common/mutex_guard.h"
#include "common/process_mutex.h"
#include "common/types.h"
#include "dfudevice/dfu_interface.h"
#include "dfuengine/device_removals.h"
#include "service/device_events.h"
#include "service/package_location.h"
#include "service/stop_latch.h"
#include "service/tick_thread.h"
#include "service/update_decision.h"

WCHAR serviceName[8] = TEXT("Vantrel");

namespace {

// Every control is accepted, up to session changes; three of them are acted on.
constexpr DWORD AcceptedControls = 0xFF;

constexpr DWORD DelayBeforeTicksMs = 10000;
constexpr DWORD DelayBeforePackageMs = 5000;
constexpr DWORD DelayBeforeNotificationsMs = 15000;
constexpr DWORD StopPollMs = 1000;

// GUID_DEVINTERFACE_KEYBOARD: every keyboard of the machine, ours among them.
constexpr GUID KeyboardInterfaceGuid = {
    0x884B96C3, 0x56EF, 0x11D1, {0xBC, 0x8C, 0x00, 0xA0, 0xC9, 0x14, 0x05, 0xDD}};

static_assert(sizeof(SERVICE_STATUS) == 28);
static_assert(sizeof(CM_NOTIFY_FILTER) == 416);

// Held while states are written and reported, so that the control manager hears of them in the
// order in which they were written: the service entry's RUNNING can neither follow STOPPED nor come
// between a pending state and its final one. Without it a report is made all the same: the control
// manager would take a service that says nothing for a hung one.
constinit ProcessMutex reportMutex;

// Writes the state and sends the whole record. Called within a turn at reportMutex.
void Report(DWORD state) {
  serviceStatus.dwCurrentState = state;
  SetServiceStatus(statusHandle, &serviceStatus);
}

// The control handler's two reports, with nothing between them. A stop is latched within the same
// turn, so no state of the service entry's comes after it.
void ReportPendingAndDone(DWORD pendingState, DWORD doneState) {
  const MutexGuard turn(reportMutex.Get());

  if (doneState == SERVICE_STOPPED) {
    LatchStop();
  }
  Report(pendingState);
  Report(doneState);
}

// The service entry's reports. A pause in the meantime is overwritten, a stop is not. Returns false
// when there has been one and nothing was reported.
bool ReportUnlessStopped(DWORD state) {
  const MutexGuard turn(reportMutex.Get());

  if (StopSeen()) {
    return false;
  }
  Report(state);
  return true;
}

// Sleeps the whole time even when a stop comes. Returns false when one has.
bool SleepUnlessStopped(DWORD delayMs) {
  Sleep(delayMs);
  return !StopSeen();
}

void StartTickThread() {
  // The thread runs until the process ends and nobody asks for it again. Without it the service
  // has no ticks, and goes on.
  const KernelHandle thread(CreateThread(nullptr, 0, TickThread, nullptr, 0, nullptr));
}

void FillInterfaceFilter(CM_NOTIFY_FILTER& filter, const GUID& classGuid) {
  // An initialiser need not clear more of the union than its first member.
  std::memset(&filter, 0, sizeof(filter));
  filter.cbSize = sizeof(filter);
  filter.FilterType = CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE;
  filter.u.DeviceInterface.ClassGuid = classGuid;
}

void RegisterNotification(CM_NOTIFY_FILTER& filter, PCM_NOTIFY_CALLBACK callback,
                          const WCHAR* successText) {
  // The registration lasts until the process ends, its handle is of no further use.
  HCMNOTIFICATION notification = nullptr;
  const CONFIGRET result = CM_Register_Notification(&filter, nullptr, callback, &notification);
  if (result == CR_SUCCESS) {
    WriteDebugText(successText);
  } else {
    WriteDebugFormat(TEXT("CM_Register_Notification failed, error %d\n"), static_cast<i32>(result));
  }
}

void RegisterKeyboardNotification() {
  CM_NOTIFY_FILTER keyboardFilter;
  FillInterfaceFilter(keyboardFilter, KeyboardInterfaceGuid);
  RegisterNotification(keyboardFilter, OnKeyboardInterfaceEvent,
                       TEXT("RegisterNotify:: success\n"));
}

// Nobody is told of a removal before this. The start-up decision may have begun an update whose
// device has left since, so one counts as told until that device answers.
void RegisterDfuNotification() {
  NoteDfuRemoval();
  CM_NOTIFY_FILTER dfuFilter;
  FillInterfaceFilter(dfuFilter, DfuInterfaceGuid);
  RegisterNotification(dfuFilter, OnDfuInterfaceEvent, TEXT("RegisterNotify DFU:: success\n"));
}

// The start-up sequence from the first report to RUNNING. Returns false when a stop ended it. The
// first decision comes before the notifications: an arrival between the two is not seen, the
// keyboard is served when it is attached again or the service starts again.
bool StartUp() {
  if (!ReportUnlessStopped(SERVICE_START_PENDING)) {
    return false;
  }
  if (!SleepUnlessStopped(DelayBeforeTicksMs)) {
    return false;
  }
  StartTickThread();
  if (!SleepUnlessStopped(DelayBeforePackageMs)) {
    return false;
  }

  SelectPackageFolder();
  EvaluateUpdate(1);
  if (StopSeen() || !SleepUnlessStopped(DelayBeforeNotificationsMs)) {
    return false;
  }

  RegisterKeyboardNotification();
  if (StopSeen()) {
    return false;
  }
  RegisterDfuNotification();
  return ReportUnlessStopped(SERVICE_RUNNING);
}

// The latch and not the state: a continue right after the stop hides the stopped state.
void WaitForStop() {
  while (!StopSeen()) {
    Sleep(StopPollMs);
  }
}

}  // namespace

SERVICE_STATUS serviceStatus = {SERVICE_WIN32_OWN_PROCESS, 0, AcceptedControls, 0, 0, 0, 0};
SERVICE_STATUS_HANDLE statusHandle = nullptr;

void WINAPI ServiceMain(DWORD, LPWSTR*) {
  // The handler may be called as soon as it is known. A mutex that cannot be made now is asked for
  // again at the next report.
  reportMutex.Get();
  statusHandle = RegisterServiceCtrlHandlerExW(serviceName, ServiceCtrlHandler, nullptr);
  if (statusHandle == nullptr) {
    return;
  }
  if (StartUp()) {
    WaitForStop();
  }
}

DWORD WINAPI ServiceCtrlHandler(DWORD dwControl, DWORD, LPVOID, LPVOID) {
  switch (dwControl) {
    case SERVICE_CONTROL_STOP:
      ReportPendingAndDone(SERVICE_STOP_PENDING, SERVICE_STOPPED);
      break;
    case SERVICE_CONTROL_PAUSE:
      ReportPendingAndDone(SERVICE_PAUSE_PENDING, SERVICE_PAUSED);
      break;
    case SERVICE_CONTROL_CONTINUE:
      ReportPendingAndDone(SERVICE_CONTINUE_PENDING, SERVICE_RUNNING);
      break;
    default:
      break;
  }
  return NO_ERROR;
}
