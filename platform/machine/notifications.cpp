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

// The thread may call back before the registering call has returned, as a thread of the pool may on
// Windows.
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

// The planner is asked without the lock: it may look at the machine. Who registers from now on
// learns nothing of this notice, as on Windows.
void NotificationCenter::Announce(const Notice& notice) {
  std::function<DeliveryPlan(const Notice&)> planner;
  std::vector<std::shared_ptr<NotificationRegistration>> registrations;
  std::uint64_t number = 0;
  {
    const std::scoped_lock lock(lock_);
    planner = planner_;
    registrations = registrations_;
    number = ++announced_;
  }

  Note(NoticeStage::Announced, number, notice);
  const DeliveryPlan plan = planner ? planner(notice) : DeliveryPlan{};
  const Waiting waiting{notice, number, scheduler_.NowMs() + plan.delayMs};
  for (const std::shared_ptr<NotificationRegistration>& registration : registrations) {
    if (registration->filter.u.DeviceInterface.ClassGuid == notice.classGuid) {
      Pass(registration, waiting, plan);
    }
  }
}

// By default through the registration's queue, which keeps the order. A thread of its own may
// overtake.
void NotificationCenter::Pass(const std::shared_ptr<NotificationRegistration>& registration,
                              const Waiting& waiting, const DeliveryPlan& plan) {
  if (!plan.ownThread) {
    auto& queue = registration->queue_;
    scheduler_.Update([&] { queue.insert(queue.end(), plan.times, waiting); });
    return;
  }
  for (unsigned i = 0; i < plan.times; ++i) {
    scheduler_.Spawn("notification thread", ThreadOwner::Service, false,
                     [this, registration, waiting]() -> std::uint32_t {
                       Deliver(*registration, waiting);
                       return 0;
                     });
  }
}

// A registration is never taken back: the service keeps both of its own until its process ends.
void NotificationCenter::DeliverForEver(NotificationRegistration& registration) {
  for (;;) {
    Waiting next;
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
    Deliver(registration, next);
  }
}

// A late notice holds up those behind it. The record is made here and gone after the callback, so a
// caller that keeps a pointer into it is found by the sanitizers.
void NotificationCenter::Deliver(const NotificationRegistration& registration,
                                 const Waiting& waiting) {
  if (const std::uint64_t now = scheduler_.NowMs(); waiting.notBeforeMs > now) {
    scheduler_.SleepMs(waiting.notBeforeMs - now);
  }
  DWORD eventBytes = 0;
  std::vector<std::uint64_t> event = MakeEventData(waiting.notice, eventBytes);
  Note(NoticeStage::Handed, waiting.number, waiting.notice);
  registration.callback(registration.handle, registration.context, waiting.notice.action,
                        reinterpret_cast<PCM_NOTIFY_EVENT_DATA>(event.data()), eventBytes);
  Note(NoticeStage::Returned, waiting.number, waiting.notice);
}

void NotificationCenter::Note(NoticeStage stage, std::uint64_t number, const Notice& notice) {
  events.Add({stage, number, scheduler_.NowMs(), Scheduler::Current()->id(), notice});
}

}  // namespace platform
