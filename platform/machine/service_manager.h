// The service control manager's side of one service: the dispatcher that the process's main thread
// waits in, the controls sent to it, and the statuses it reports.
#pragma once

#include <windows.h>

#include <deque>
#include <mutex>
#include <string>

#include "platform/machine/handle_table.h"
#include "platform/machine/records.h"
#include "platform/machine/scheduler.h"

namespace platform {

// One SetServiceStatus, as the service filled it in. The manager believes all of it.
struct StatusReport {
  SERVICE_STATUS status;
  std::uint64_t timeMs;
};

// What the handler returned for a control. Windows shows an error to who sent it.
struct ControlAnswer {
  DWORD control;
  DWORD result;
};

// The object behind a SERVICE_STATUS_HANDLE.
class ServiceRegistration : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::ServiceStatus;

  std::u16string name;
  LPHANDLER_FUNCTION_EX handler = nullptr;
  LPVOID context = nullptr;
};

// Windows' manager is a process of its own, and talks to the service through the dispatcher's
// thread. Any thread may send or report.
class ServiceManager {
 public:
  explicit ServiceManager(Scheduler& scheduler) : scheduler_(scheduler) {}

  // --- For the script of a run ---

  // False: the program was started from a console, and the dispatcher refuses it. Default true.
  void SetStartedByManager(bool started);

  // Queues a control. The dispatcher hands it to the handler, on the process's main thread, as soon
  // as the service has registered one and reported for the first time: before that Windows takes no
  // control for it. Windows asks the service beforehand which controls it takes. Here every one is
  // delivered, because the handler has to bear those that nobody announced.
  void SendControl(DWORD control);

  RecordLog<StatusReport> reports;
  RecordLog<ControlAnswer> answers;

  // --- For the calls of the layer ---

  // Runs the service's entry on a thread of its own and hands over controls until the service has
  // reported that it is stopped. False when the manager did not start the process. It returns, too,
  // when the entry ends without a report. Controls that are still queued are dropped then.
  bool Dispatch(const SERVICE_TABLE_ENTRYW& entry);

  // The service's handler, and its statuses. A later registration takes the place of an earlier
  // one.
  void Register(std::shared_ptr<ServiceRegistration> registration);
  void Report(const SERVICE_STATUS& status);

 private:
  bool TakeControl(DWORD& control, std::shared_ptr<ServiceRegistration>& registration);

  Scheduler& scheduler_;
  mutable std::mutex lock_;
  bool startedByManager_ = true;
  bool reported_ = false;
  bool stopped_ = false;
  std::shared_ptr<ServiceRegistration> registration_;
  std::deque<DWORD> controls_;
};

}  // namespace platform
