// Notifications of interfaces that arrive and leave, on the way to who registered for them.
//
// Each registration has a thread of its own that belongs to the service's process, so that it ends
// with it. Within a registration notices are delivered one after the other in the order in which
// things happened; none of the layer's locks is held while the service is called back.
#pragma once

#include <cfgmgr32.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/machine/handle_table.h"
#include "platform/machine/scheduler.h"

namespace platform {

struct Notice {
  CM_NOTIFY_ACTION action = CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL;
  GUID classGuid{};
  std::u16string path;
};

// What becomes of a notice: dropped (0 times), delivered late, delivered twice.
struct DeliveryPlan {
  unsigned times = 1;
  std::uint64_t delayMs = 0;  // later notices of the registration wait behind it
};

// The object behind an HCMNOTIFICATION.
class NotificationRegistration : public KernelObject {
 public:
  CM_NOTIFY_FILTER filter{};  // as the caller gave it
  PCM_NOTIFY_CALLBACK callback = nullptr;
  PVOID context = nullptr;
  HCMNOTIFICATION handle = nullptr;

 private:
  friend class NotificationCenter;
  struct Waiting {
    Notice notice;
    std::uint64_t notBeforeMs;
  };

  std::deque<Waiting> queue_;  // guarded by the scheduler's lock
};

class NotificationCenter {
 public:
  explicit NotificationCenter(Scheduler& scheduler) : scheduler_(scheduler) {}

  // Starts the delivery of what happens from now on. handle is set by then.
  void Register(std::shared_ptr<NotificationRegistration> registration);

  // Queues the notice for every registration of its class. Returns before it is delivered.
  void Announce(const Notice& notice);

  // Asked once for each notice, on the announcing thread; null delivers all of them at once.
  void PlanDeliveries(std::function<DeliveryPlan(const Notice&)> planner);

 private:
  [[noreturn]] void DeliverForEver(NotificationRegistration& registration);

  Scheduler& scheduler_;
  mutable std::mutex lock_;
  std::vector<std::shared_ptr<NotificationRegistration>> registrations_;
  std::function<DeliveryPlan(const Notice&)> planner_;
};

}  // namespace platform
