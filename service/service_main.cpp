#include "service/service_main.h"

#include <cfgmgr32.h>

#include <atomic>
#include <cstring>

#include "common/debug_output.h"
#include "common/handles.h"
#include "common/types.h"
#include "dfudevice/dfu_interface.h"
#include "service/device_events.h"
#include "service/package_location.h"
#include "service/stop_latch.h"
#include "service/tick_thread.h"
#include "service/update_decision.h"

WCHAR serviceName[8] = TEXT("Vantrel");

namespace {

// Every control is accepted, up to session changes; three of them are acted on.
constexpr DWORD AcceptedControls = 0xFF;

constexpr SERVICE_STATUS StatusAtStart = {
    SERVICE_WIN32_OWN_PROCESS, 0, AcceptedControls, 0, 0, 0, 0};

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
// between a pending state and its final one. Lives as long as the process. Null before ServiceMain
// has made it.
HANDLE reportMutex = nullptr;

// One turn at reporting. Without the mutex the report is made all the same: the control manager
// would take a service that says nothing for a hung one.
class ReportTurn {
 public:
  ReportTurn() {
    if (reportMutex == nullptr) {
      return;
    }
    const DWORD result = WaitForSingleObject(reportMutex, INFINITE);
    held_ = result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
  }
  ~ReportTurn() {
    if (held_) {
      ReleaseMutex(reportMutex);
    }
  }
  ReportTurn(const ReportTurn&) = delete;
  ReportTurn& operator=(const ReportTurn&) = delete;

 private:
  bool held_ = false;
};

std::atomic_ref<DWORD> CurrentState() {
  return std::atomic_ref<DWORD>(serviceStatus.dwCurrentState);
}

// Sends the whole record with the given state. The copy is the caller's own, so that a state which
// another thread writes meanwhile cannot slip into this report.
void SendReport(DWORD state) {
  SERVICE_STATUS report = StatusAtStart;
  report.dwCurrentState = state;
  SetServiceStatus(statusHandle, &report);
}

// The control handler's two reports, with nothing between them.
void ReportPendingAndDone(DWORD pendingState, DWORD doneState) {
  ReportTurn turn;

  CurrentState().store(pendingState);
  SendReport(pendingState);
  CurrentState().store(doneState);
  SendReport(doneState);
}

// The service entry's reports. A pause in the meantime is overwritten, a stop is not: it is latched
// before its first state is written. Returns false when there has been one and nothing was
// reported.
bool ReportUnlessStopped(DWORD state) {
  ReportTurn turn;

  DWORD seen = CurrentState().load();
  do {
    if (StopSeen()) {
      return false;
    }
  } while (!CurrentState().compare_exchange_weak(seen, state));
  SendReport(state);
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

void RegisterDfuNotification() {
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

// The mark is looked at too, because a continue right after the stop hides the stopped state.
void WaitForStop() {
  while (CurrentState().load() != SERVICE_STOPPED && !StopSeen()) {
    Sleep(StopPollMs);
  }
}

}  // namespace

SERVICE_STATUS serviceStatus = StatusAtStart;
SERVICE_STATUS_HANDLE statusHandle = nullptr;

void WINAPI ServiceMain(DWORD, LPWSTR*) {
  statusHandle = RegisterServiceCtrlHandlerExW(serviceName, ServiceCtrlHandler, nullptr);
  if (statusHandle == nullptr) {
    return;
  }

  reportMutex = CreateMutexW(nullptr, FALSE, nullptr);
  if (StartUp()) {
    WaitForStop();
  }
}

DWORD WINAPI ServiceCtrlHandler(DWORD dwControl, DWORD, LPVOID, LPVOID) {
  switch (dwControl) {
    case SERVICE_CONTROL_STOP:
      LatchStop();
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
