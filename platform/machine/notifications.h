// Notifications of interfaces that arrive and leave, on the way to who registered for them.
//
// Windows calls back on threads of a pool. Here each registration has a thread that delivers its
// notices one after the other, in the order in which things happened; a plan may give a notice a
// thread of its own, and then it comes beside the others or before earlier ones. All of these
// threads belong to the service's process and end with it. None of the layer's locks is held while
// the service is called back.
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
#include "platform/machine/records.h"
#include "platform/machine/scheduler.h"

namespace platform {

// An interface that came or left; or what else a script wants the service to be told.
struct Notice {
  CM_NOTIFY_ACTION action = CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL;
  GUID classGuid{};
  std::u16string path;
};

// What happens to a notice: it is announced, also when its plan drops it; it is handed to a
// callback; the callback returns, unless its process has ended.
enum class NoticeStage { Announced, Handed, Returned };

struct NoticeEvent {
  NoticeStage stage = NoticeStage::Announced;
  std::uint64_t number = 0;  // of the notice in the run, from 1
  std::uint64_t timeMs = 0;
  std::uint32_t threadId = 0;  // of the announcing thread, or of the callback's
  Notice notice;
};

// What becomes of a notice: dropped (0 times), delivered late, delivered twice. Windows loses and
// doubles notices when a hub resets or the system wakes, and is slow when it is busy. The service
// must live with all of it.
struct DeliveryPlan {
  unsigned times = 1;
  std::uint64_t delayMs = 0;  // later notices that share its thread wait behind it
  bool ownThread = false;     // each of its times
};

// The object behind an HCMNOTIFICATION. Made by CM_Register_Notification and kept for the rest of
// the process, since nobody ever takes one back.
class NotificationRegistration : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::Notification;

  CM_NOTIFY_FILTER filter{};  // as the caller gave it
  PCM_NOTIFY_CALLBACK callback = nullptr;
  PVOID context = nullptr;
  HCMNOTIFICATION handle = nullptr;

 private:
  friend class NotificationCenter;
  struct Waiting {
    Notice notice;
    std::uint64_t number;
    std::uint64_t notBeforeMs;
  };

  std::deque<Waiting> queue_;  // guarded by the scheduler's lock
};

// Any thread may announce. What is announced before somebody registers is lost to him, as on
// Windows: he has to look for himself what is there already.
class NotificationCenter {
 public:
  explicit NotificationCenter(Scheduler& scheduler) : scheduler_(scheduler) {}

  // Starts the delivery of what happens from now on. handle is set by then.
  void Register(std::shared_ptr<NotificationRegistration> registration);

  // Queues the notice for every registration of its class. Returns before it is delivered. A script
  // may announce what did not happen to any device, for instance a
  // CM_NOTIFY_ACTION_DEVICEQUERYREMOVE. The same notice may be on its way to several callbacks at
  // once. Windows promises an order within one registration only.
  void Announce(const Notice& notice);

  // Asked once for each notice, on the announcing thread; null delivers all of them at once.
  void PlanDeliveries(std::function<DeliveryPlan(const Notice&)> planner);

  // What became of every notice, for traces and judges.
  RecordLog<NoticeEvent> events;

 private:
  using Waiting = NotificationRegistration::Waiting;

  // Queues it, or starts its threads.
  void Pass(const std::shared_ptr<NotificationRegistration>& registration, const Waiting& waiting,
            const DeliveryPlan& plan);
  [[noreturn]] void DeliverForEver(NotificationRegistration& registration);
  // Waits for the notice's time, and calls back.
  void Deliver(const NotificationRegistration& registration, const Waiting& waiting);
  void Note(NoticeStage stage, std::uint64_t number, const Notice& notice);

  Scheduler& scheduler_;
  mutable std::mutex lock_;
  std::vector<std::shared_ptr<NotificationRegistration>> registrations_;
  std::function<DeliveryPlan(const Notice&)> planner_;
  std::uint64_t announced_ = 0;
};

}  // namespace platform
