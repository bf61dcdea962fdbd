#include "simulator/troubles.h"

#include <algorithm>

#include "platform/machine/machine.h"
#include "simulator/stage.h"
#include "simulator/tablet.h"
#include "simulator/virtual_keyboard.h"

namespace simulator {

namespace {

// Between two notices that are turned round.
constexpr u64 ApartMs = 40;

// Takes one of what is left; whether there was any. Several threads may announce at once.
bool TakeOne(std::atomic<u32>& counter) {
  u32 left = counter;
  while (left > 0 && !counter.compare_exchange_weak(left, left - 1)) {
  }
  return left > 0;
}

}  // namespace

// Before the service starts, so that numbers of calls and transfers count from its first.
void Troubles::Arm() {
  for (const Trouble& trouble : troubles_) {
    Arm(trouble);
  }
}

// What happens at a time is the script's business.
void Troubles::Arm(const Trouble& trouble) {
  const auto happen = [this, &trouble] { Happen(trouble); };
  if (trouble.kind->traits.isOrder) {
    trouble.kind->happen(stage_, trouble);
  } else if (trouble.kind->place == FaultPlace::Transfer) {
    stage_.machine().transfers.AtTransfer(trouble.at, happen);
  } else if (trouble.kind->place == FaultPlace::Call) {
    stage_.machine().gate.AtNumber(trouble.at, happen);
  }
}

// One whose place comes only when all troubles have ended does not happen.
void Troubles::Happen(const Trouble& trouble) {
  const TroubleKind& kind = *trouble.kind;
  if (!ended_ && (!kind.traits.needsDfuMode || stage_.keyboard.mode() == KeyboardMode::Dfu)) {
    Count(kind.told);
    kind.happen(stage_, trouble);
  }
}

// From here on the world must be as a person would find it: orders are taken back, the keyboard
// answers, the battery is charged, and the second keyboard is gone.
void Troubles::End(const KeyboardOptions& peace) {
  ended_ = true;
  stage_.machine().gate.ClearFailures();
  stage_.refuseMemory(0);
  stage_.deliveries.drop = 0;
  stage_.deliveries.twice = 0;
  stage_.deliveries.delayMs = 0;
  stage_.deliveries.apart = 0;
  stage_.keyboard.Intercept(nullptr);
  stage_.keyboard.ForgetScript();
  stage_.keyboard.Change([&](KeyboardOptions& options) { options = peace; });
  stage_.second.Detach();
  stage_.machine().power.SetBatteryPercent(FullEnoughPercent);
}

// Windows calls back on threads of its own and promises little: notices may be late, and nothing
// keeps two callbacks apart.
platform::DeliveryPlan Troubles::PlanDelivery(const platform::Notice& notice) {
  platform::DeliveryPlan delivery;
  delivery.delayMs = stage_.deliveries.delayMs;
  if (notice.action == CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL && TakeOne(stage_.deliveries.drop)) {
    delivery.times = 0;
    Count("arrival dropped");
  } else if (TakeOne(stage_.deliveries.twice)) {
    delivery.times = 2;
    Count("notice delivered twice");
  }
  if (TakeOne(stage_.deliveries.apart)) {
    // Later ones come sooner: the order is turned round.
    delivery.ownThread = true;
    delivery.delayMs = u64{stage_.deliveries.apart} * ApartMs;
    Count("notice on a thread of its own");
  }
  const std::scoped_lock lock(lock_);
  lastNoticeMs_ = std::max<u64>(lastNoticeMs_, stage_.tablet.nowMs() + delivery.delayMs);
  return delivery;
}

u64 Troubles::lastNoticeMs() const {
  const std::scoped_lock lock(lock_);
  return lastNoticeMs_;
}

void Troubles::Count(const std::string& trouble) {
  const std::scoped_lock lock(lock_);
  ++counts_[trouble];
}

std::map<std::string, u64> Troubles::counts() const {
  const std::scoped_lock lock(lock_);
  return counts_;
}

}  // namespace simulator
