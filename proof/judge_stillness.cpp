#include "proof/judge_stillness.h"

#include <algorithm>

#include "proof/excuses.h"
#include "proof/trial_report.h"
#include "simulator/timeline.h"
#include "simulator/wire_requests.h"

namespace proof {

namespace {

// From the end of one tick's work to the next tick. The first one after an operation launches the
// next; when that fails the second one tells.
constexpr u64 TwoTicksMs = 6'000;

// For what a tick itself has to do, and for whoever holds the lock that it needs: a few
// descriptors.
constexpr u64 WorkMs = 1'000;

constexpr u64 LongestTransferMs = platform::ControlTimeoutMs + 1'000;

// Whether the request to leave is out. A device that did not follow it stays as it is.
bool HasLeft(const Operation& operation) {
  return operation.kind == Operation::Kind::Leave && operation.end == Operation::End::Succeeded;
}

bool IsAbort(const Event& event) {
  return event.what == Happening::Transfer && event.side == Side::Dfu &&
         event.transfer.setup.RequestType == HostToInterface &&
         event.transfer.setup.Request == simulator::DfuAbort;
}

class StillnessJudge {
 public:
  StillnessJudge(const History& history, const std::vector<Operation>& operations)
      : history_(history), operations_(operations), excuses_(history.events()) {}

  std::vector<std::string> Judge(u64 endMs) {
    if (excuses_.CallEverFailed(platform::Call::CreateThread)) {
      return {};  // an operation without a thread waits for the next arrival
    }
    for (std::size_t i = 0; i < history_.events().size(); ++i) {
      now_ = i;
      See(history_.events()[i]);
      watched_ = EndsWithout(i) ? Unit::Other : watched_;
    }
    LookAtEnd(endMs);
    return std::move(faults_);
  }

 private:
  void See(const Event& event);
  void SeeTransfer(const Event& event);
  void LookAtGap(u64 timeMs);
  void LookAtEnd(u64 timeMs);
  u64 BeganBefore(u64 timeMs) const;
  bool EndsWithout(std::size_t index) const;

  const History& history_;
  const std::vector<Operation>& operations_;
  const Excuses excuses_;
  std::vector<std::string> faults_;
  Unit watched_ = Unit::Other;  // the keyboard that lies erased; Other: none
  std::size_t now_ = 0;         // the event that is looked at
  u64 spokenMs_ = 0;
  u64 othersMs_ = 0;  // on the wire with other devices since then
  u64 leftAloneUntilMs_ = 0;
};

// A keyboard that left, or whose end was told, need not be spoken to. Neither need any when the
// service stops.
void StillnessJudge::See(const Event& event) {
  switch (event.what) {
    case Happening::Transfer:
      SeeTransfer(event);
      return;
    case Happening::Announced:
      if (event.side == Side::Dfu && event.value == 0 && event.unit == watched_) {
        LookAtGap(event.timeMs);
        watched_ = Unit::Other;
      }
      return;
    case Happening::Word:
      if (event.text == "DISCONNECT") {
        LookAtGap(event.timeMs);
        watched_ = Unit::Other;
      }
      return;
    case Happening::StopSent:
    case Happening::Ended:
      LookAtEnd(event.timeMs);
      watched_ = Unit::Other;
      return;
    default:
      return;
  }
}

void StillnessJudge::SeeTransfer(const Event& event) {
  const platform::TransferRecord& transfer = event.transfer;
  const bool arrived = transfer.result != platform::UsbResult::Absent &&
                       transfer.result != platform::UsbResult::Vanished;
  if (event.side != Side::Dfu || event.unit == Unit::Other || !arrived) {
    return;
  }
  if (event.unit == watched_) {
    LookAtGap(transfer.startMs);
  } else if (transfer.setup.Request == SetInterfaceRequest) {
    watched_ = event.unit;
  } else {
    // A refresh that asks another keyboard, which may not answer, holds up the tick.
    othersMs_ += event.timeMs - transfer.startMs;
    return;
  }
  spokenMs_ = event.timeMs;
  othersMs_ = 0;
  leftAloneUntilMs_ = event.timeMs + LeftAloneMs(transfer.setup, transfer.data);
}

// The operation whose end this event shows, and with it the update: a leave, whatever the device
// made of it, and one that failed or cannot be followed by the next when nobody is there to be
// told.
bool StillnessJudge::EndsWithout(std::size_t index) const {
  const std::vector<Event>& events = history_.events();
  const std::size_t due = LastUntil(events, ToldByMs(history_, events[index].timeMs));
  if (IsAbort(events[index]) && excuses_.ForNoWord(index, due, 0)) {
    return true;  // an arrival ended it, perhaps, and could not tell
  }
  return std::any_of(operations_.begin(), operations_.end(), [&](const Operation& operation) {
    return operation.decided == index && operation.end != Operation::End::Unfinished &&
           (HasLeft(operation) || excuses_.ForNoWord(index, due, 0));
  });
}

// A transfer is noted when it ends; one that is under way has begun before.
u64 StillnessJudge::BeganBefore(u64 timeMs) const {
  const std::vector<Event>& events = history_.events();
  u64 beganMs = timeMs;
  for (std::size_t i = now_; i < events.size() && events[i].timeMs <= timeMs + LongestTransferMs;
       ++i) {
    const Event& event = events[i];
    if (event.what == Happening::Transfer && event.side == Side::Dfu && event.unit == watched_) {
      beganMs = std::min(beganMs, event.transfer.startMs);
    }
  }
  return beganMs;
}

// A transfer that is under way when the process ends is never noted.
void StillnessJudge::LookAtEnd(u64 timeMs) {
  LookAtGap(timeMs < platform::ControlTimeoutMs ? 0 : timeMs - platform::ControlTimeoutMs);
}

// Held threads and talk with other devices are nobody's fault and lengthen the bound.
void StillnessJudge::LookAtGap(u64 timeMs) {
  const u64 fromMs = std::max(spokenMs_, leftAloneUntilMs_);
  // The bound is never less, and nearly every gap is shorter: no need to look what began before.
  if (watched_ == Unit::Other || timeMs <= fromMs + TwoTicksMs + WorkMs) {
    return;
  }
  const u64 untilMs = BeganBefore(timeMs);
  if (untilMs <= fromMs) {
    return;
  }
  const u64 boundMs = TwoTicksMs + WorkMs + othersMs_ + history_.HeldMs(spokenMs_, untilMs);
  if (untilMs - fromMs > boundMs) {
    faults_.push_back(At(fromMs) + "expected a transfer or DISCONNECT within " +
                      SecondsText(boundMs) + ", found none for " + SecondsText(untilMs - fromMs));
    watched_ = Unit::Other;
  }
}

}  // namespace

std::vector<std::string> JudgeStillness(const History& history,
                                        const std::vector<Operation>& operations, u64 endMs) {
  return StillnessJudge(history, operations).Judge(endMs);
}

}  // namespace proof
