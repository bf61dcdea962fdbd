#include "platform/machine/service_manager.h"

namespace platform {

void ServiceManager::SetStartedByManager(bool started) {
  const std::scoped_lock lock(lock_);
  startedByManager_ = started;
}

void ServiceManager::SendControl(DWORD control) {
  scheduler_.Update([&] {
    const std::scoped_lock lock(lock_);
    controls_.push_back(control);
  });
}

std::vector<StatusReport> ServiceManager::Reports() const {
  const std::scoped_lock lock(lock_);
  return reports_;
}

std::vector<ControlAnswer> ServiceManager::Answers() const {
  const std::scoped_lock lock(lock_);
  return answers_;
}

void ServiceManager::ObserveReports(std::function<void(const StatusReport&)> observer) {
  const std::scoped_lock lock(lock_);
  observer_ = std::move(observer);
}

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
    const std::scoped_lock lock(lock_);
    answers_.push_back({control, result});
  }
}

// The next control, once the service has told that it takes any and until it is stopped.
bool ServiceManager::TakeControl(DWORD& control,
                                 std::shared_ptr<ServiceRegistration>& registration) {
  const std::scoped_lock lock(lock_);
  if (stopped_ || controls_.empty() || registration_ == nullptr || reports_.empty()) {
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

void ServiceManager::Report(const SERVICE_STATUS& status) {
  const StatusReport report{status, scheduler_.NowMs()};
  std::function<void(const StatusReport&)> observer;
  scheduler_.Update([&] {
    const std::scoped_lock lock(lock_);
    reports_.push_back(report);
    stopped_ = stopped_ || status.dwCurrentState == SERVICE_STOPPED;
    observer = observer_;
  });
  if (observer) {
    observer(report);
  }
}

}  // namespace platform
