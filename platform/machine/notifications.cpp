#include "platform/machine/notifications.h"

#include <cstddef>
#include <cstring>

namespace platform {

namespace {

// The record that the callback gets: its path is as long as it needs to be.
std::vector<std::uint64_t> MakeEventData(const Notice& notice, DWORD& sizeBytes) {
  constexpr std::size_t LinkOffset = offsetof(CM_NOTIFY_EVENT_DATA, u.DeviceInterface.SymbolicLink);
  const std::size_t linkBytes = (notice.path.size() + 1) * sizeof(WCHAR);
  sizeBytes = static_cast<DWORD>(LinkOffset + linkBytes);

  std::vector<std::uint64_t> storage(sizeof(CM_NOTIFY_EVENT_DATA) / 8 + linkBytes / 8 + 2);
  auto* const event = reinterpret_cast<CM_NOTIFY_EVENT_DATA*>(storage.data());
  event->FilterType = CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE;
  event->u.DeviceInterface.ClassGuid = notice.classGuid;
  std::memcpy(reinterpret_cast<std::uint8_t*>(storage.data()) + LinkOffset, notice.path.c_str(),
              linkBytes);
  return storage;
}

}  // namespace

void NotificationCenter::Register(std::shared_ptr<NotificationRegistration> registration) {
  {
    const std::scoped_lock lock(lock_);
    registrations_.push_back(registration);
  }
  scheduler_.Spawn("notification thread", ThreadOwner::Service, false,
                   [this, registration]() -> std::uint32_t { DeliverForEver(*registration); });
}

void NotificationCenter::PlanDeliveries(std::function<DeliveryPlan(const Notice&)> planner) {
  const std::scoped_lock lock(lock_);
  planner_ = std::move(planner);
}

void NotificationCenter::Announce(const Notice& notice) {
  std::function<DeliveryPlan(const Notice&)> planner;
  std::vector<std::shared_ptr<NotificationRegistration>> registrations;
  {
    const std::scoped_lock lock(lock_);
    planner = planner_;
    registrations = registrations_;
  }

  const DeliveryPlan plan = planner ? planner(notice) : DeliveryPlan{};
  const std::uint64_t notBeforeMs = scheduler_.NowMs() + plan.delayMs;
  scheduler_.Update([&] {
    for (const std::shared_ptr<NotificationRegistration>& registration : registrations) {
      if (registration->filter.u.DeviceInterface.ClassGuid == notice.classGuid) {
        registration->queue_.insert(registration->queue_.end(), plan.times, {notice, notBeforeMs});
      }
    }
  });
}

void NotificationCenter::DeliverForEver(NotificationRegistration& registration) {
  for (;;) {
    NotificationRegistration::Waiting next;
    scheduler_.WaitUntil(
        [&] {
          if (registration.queue_.empty()) {
            return false;
          }
          next = std::move(registration.queue_.front());
          registration.queue_.pop_front();
          return true;
        },
        NoDeadline);
    if (const std::uint64_t now = scheduler_.NowMs(); next.notBeforeMs > now) {
      scheduler_.SleepMs(next.notBeforeMs - now);
    }
    DWORD eventBytes = 0;
    std::vector<std::uint64_t> event = MakeEventData(next.notice, eventBytes);
    registration.callback(registration.handle, registration.context, next.notice.action,
                          reinterpret_cast<PCM_NOTIFY_EVENT_DATA>(event.data()), eventBytes);
  }
}

}  // namespace platform
