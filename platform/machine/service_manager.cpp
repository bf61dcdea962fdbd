#include "platform/machine/service_manager.h"

namespace platform {

void ServiceManager::SetStartedByManager(bool started) {
  const std::scoped_lock lock(lock_);
  startedByManager_ = started;
}

// Through the scheduler, because the dispatcher waits for it.
void ServiceManager::SendControl(DWORD control) {
  scheduler_.Update([&] {
    const std::scoped_lock lock(lock_);
    controls_.push_back(control);
  });
}

// Windows passes the service's name as its first argument. The handler runs here, on the thread of
// the dispatcher, with no lock held: it may report a status itself.
bool ServiceManager::Dispatch(const SERVICE_TABLE_ENTRYW& entry) {
  {
    const std::scoped_lock lock(lock_);
    if (!startedByManager_) {
      return false;
    }
  }
  const auto service =
      scheduler_.Spawn("service main", ThreadOwner::Service, false, [entry]() -> std::uint32_t {
        LPWSTR arguments[] = {entry.lpServiceName, nullptr};
        entry.lpServiceProc(1, arguments);
        return 0;
      });

  for (;;) {
    DWORD control = 0;
    std::shared_ptr<ServiceRegistration> registration;
    bool handOver = false;
    scheduler_.WaitUntil(
        [&] {
          handOver = TakeControl(control, registration);
          const std::scoped_lock lock(lock_);
          return handOver || stopped_ || service->hasEnded();
        },
        NoDeadline);
    if (!handOver) {
      return true;
    }
    const DWORD result = registration->handler(control, 0, nullptr, registration->context);
    answers.Add({control, result});
  }
}

// The next control, once the service has told that it takes any and until it is stopped.
bool ServiceManager::TakeControl(DWORD& control,
                                 std::shared_ptr<ServiceRegistration>& registration) {
  const std::scoped_lock lock(lock_);
  if (stopped_ || controls_.empty() || registration_ == nullptr || !reported_) {
    return false;
  }
  control = controls_.front();
  controls_.pop_front();
  registration = registration_;
  return true;
}

void ServiceManager::Register(std::shared_ptr<ServiceRegistration> registration) {
  scheduler_.Update([&] {
    const std::scoped_lock lock(lock_);
    registration_ = std::move(registration);
  });
}

// A status behind STOPPED changes nothing any more. It is recorded all the same, for whoever looks.
void ServiceManager::Report(const SERVICE_STATUS& status) {
  reports.Add({status, scheduler_.NowMs()});
  scheduler_.Update([&] {
    const std::scoped_lock lock(lock_);
    reported_ = true;
    stopped_ = stopped_ || status.dwCurrentState == SERVICE_STOPPED;
  });
}

}  // namespace platform
