#include "proof/judge_words.h"

#include <algorithm>
#include <set>

#include "proof/excuses.h"
#include "proof/judge_decisions.h"
#include "proof/trial_report.h"
#include "proof/windows.h"
#include "simulator/wire_requests.h"

namespace proof {

namespace {

// wValue of the read with which a refresh begins.
constexpr u16 DeviceDescriptor = 0x0100;

// The calls with which an operation lists and opens its device.
bool IsOfOpening(platform::Call call) {
  using platform::Call;
  static constexpr Call Calls[] = {Call::CM_Get_Device_Interface_List_SizeW,
                                   Call::CM_Get_Device_Interface_ListW,
                                   Call::CM_Get_Device_Interface_PropertyW,
                                   Call::CreateFileW,
                                   Call::WinUsb_Initialize,
                                   Call::HeapAlloc,
                                   Call::MultiByteToWideChar,
                                   Call::WideCharToMultiByte};
  return std::find(std::begin(Calls), std::end(Calls), call) != std::end(Calls);
}

// An update that came to its end, and the word that was due for it.
struct Debt {
  const Operation* operation = nullptr;
  bool isOwed = true;  // false: may be told, need not
  bool isPaid = false;
};

// Keeps the books: each update that ended owes a word, and each word that was told pays for one.
// What is left on either side is a fault.
class WordJudge {
 public:
  WordJudge(const History& history, const TrialPlan& plan, const std::vector<Operation>& operations)
      : history_(history),
        events_(history.events()),
        plan_(plan),
        operations_(operations),
        windows_(FindWindows(events_)),
        excuses_(events_) {}

  std::vector<std::string> Judge();

 private:
  void FindDebts();
  void FindDebtOf(std::size_t number);
  bool IsFollowed(std::size_t number) const;
  bool IsRefreshedBehind(std::size_t number) const;
  bool WasInterrupted(const Operation& operation) const;
  bool MayStayUntold(const Operation& operation) const;
  bool RacesWithArrival(const Operation& operation) const;
  const Operation* NextOfUnit(const Operation& operation) const;
  std::size_t DueIndex(const Operation& operation) const;

  void PayComplete(std::size_t index);
  void PayDisconnect(std::size_t index);
  bool PaySession(std::size_t index);
  bool PayPreparation(std::size_t index);
  bool PaySilent(std::size_t index);
  bool PayThreadless(std::size_t index);
  bool LaunchedLast(std::size_t index) const;
  bool FailsToOpen(const Event& event) const;
  bool RefreshCouldFail(const Window& window, std::size_t index) const;
  void LookAtUnpaid();
  void Fault(u64 timeMs, const std::string& what) { faults_.push_back(At(timeMs) + what); }

  const History& history_;
  const std::vector<Event>& events_;
  const TrialPlan& plan_;
  const std::vector<Operation>& operations_;
  const std::vector<Window> windows_;
  const Excuses excuses_;
  std::vector<Debt> completes_;
  std::vector<Debt> disconnects_;
  std::set<std::size_t> paidWindows_;
  std::set<std::size_t> silentPaid_;
  std::vector<std::string> faults_;
};

// START and BATTERY are the decisions' own words. They come first, because a decision may also have
// told a DISCONNECT, which then pays for nothing here.
std::vector<std::string> WordJudge::Judge() {
  const std::set<std::size_t> ofDecisions =
      JudgeDecisions(events_, windows_, plan_, excuses_, faults_);
  FindDebts();
  for (std::size_t i = 0; i < events_.size(); ++i) {
    if (events_[i].what != Happening::Word) {
      continue;
    }
    if (events_[i].text == "COMPLETE") {
      PayComplete(i);
    } else if (events_[i].text == "DISCONNECT" && ofDecisions.count(i) == 0) {
      PayDisconnect(i);
    }
  }
  LookAtUnpaid();
  return std::move(faults_);
}

// ---- What is owed ----

void WordJudge::FindDebts() {
  for (std::size_t i = 0; i < operations_.size(); ++i) {
    FindDebtOf(i);
  }
}

// A leave that succeeded owes COMPLETE, whatever the device made of it: nobody sees more. An update
// that was interrupted owes nothing as long as it goes on. One that failed, or that nothing
// followed, owes DISCONNECT.
void WordJudge::FindDebtOf(std::size_t number) {
  const Operation& operation = operations_[number];
  const bool owed = !MayStayUntold(operation);
  const bool succeeded = operation.end == Operation::End::Succeeded;
  if (succeeded && operation.kind == Operation::Kind::Leave) {
    completes_.push_back({&operation, owed && !operation.lacksRequest});
  } else if (operation.end == Operation::End::Unfinished) {
    if (WasInterrupted(operation)) {
      const Operation* const next = NextOfUnit(operation);
      const bool goesOn = next != nullptr && next->startMs <= ToldByMs(history_, operation.endMs);
      disconnects_.push_back({&operation, owed && !goesOn && !RacesWithArrival(operation)});
    }
  } else if (!succeeded || !IsFollowed(number)) {
    disconnects_.push_back({&operation, owed && !RacesWithArrival(operation)});
  }
}

// Whether the next operation of the update began. One that failed before its first command may look
// like a download, but no download begins with a refresh: that is another update's erase.
bool WordJudge::IsFollowed(std::size_t number) const {
  return number + 1 < operations_.size() &&
         operations_[number + 1].kind != Operation::Kind::Erase && !IsRefreshedBehind(number) &&
         (operations_[number + 1].unit == operations_[number].unit ||
          operations_[number + 1].unit == Unit::Other);
}

// The download is launched without a new look at the device; only a new update takes one.
bool WordJudge::IsRefreshedBehind(std::size_t number) const {
  if (operations_[number].kind != Operation::Kind::Erase) {
    return false;
  }
  const auto begin = events_.begin() + static_cast<std::ptrdiff_t>(operations_[number].last);
  const auto end = events_.begin() + static_cast<std::ptrdiff_t>(operations_[number + 1].first);
  return std::any_of(begin, end, [](const Event& event) {
    return event.what == Happening::Transfer && event.side == Side::Dfu &&
           event.transfer.setup.RequestType == StandardToHost &&
           event.transfer.setup.Value == DeviceDescriptor;
  });
}

// The update of a keyboard goes on with that keyboard's next operation, whatever came in between.
const Operation* WordJudge::NextOfUnit(const Operation& operation) const {
  for (const Operation& other : operations_) {
    if (other.first > operation.last && other.unit == operation.unit) {
      return &other;
    }
  }
  return nullptr;
}

// Another thread ended it: it was told so by an ABORT, or an arrival came behind a removal.
bool WordJudge::WasInterrupted(const Operation& operation) const {
  for (std::size_t i = operation.last + 1; i < events_.size(); ++i) {
    const Event& event = events_[i];
    if (event.what == Happening::Transfer && event.side == Side::Dfu &&
        event.threadId != operation.threadId &&
        event.transfer.setup.RequestType == HostToInterface) {
      return true;
    }
  }
  return false;
}

// The last event before which its end has to be told.
std::size_t WordJudge::DueIndex(const Operation& operation) const {
  return LastUntil(events_, ToldByMs(history_, operation.dueMs));
}

// The life ended first, nobody was there, the launch failed, or there was no thread to go on with.
bool WordJudge::MayStayUntold(const Operation& operation) const {
  const std::size_t due = DueIndex(operation);
  return events_.back().timeMs < ToldByMs(history_, operation.dueMs) ||
         excuses_.ForNoWord(operation.decided, due, 0) ||
         excuses_.Any(Happening::StopSent, 0, due) ||
         excuses_.CallEverFailed(platform::Call::CreateThread);
}

// An arrival that comes between an operation's end and the tick that would tell may tell instead.
bool WordJudge::RacesWithArrival(const Operation& operation) const {
  const std::size_t due = DueIndex(operation);
  return std::any_of(windows_.begin(), windows_.end(), [&](const Window& window) {
    return window.kind != Window::Kind::KeyboardArrival && window.begin <= due &&
           window.end > operation.decided;
  });
}

// ---- What was told ----

// The leave tells on its own thread, so the debt of that thread comes first.
void WordJudge::PayComplete(std::size_t index) {
  for (const bool own : {true, false}) {
    for (Debt& debt : completes_) {
      const bool tells = debt.operation->threadId == events_[index].threadId;
      if (!debt.isPaid && debt.operation->last < index && tells == own) {
        debt.isPaid = true;
        if (debt.operation->lacksRequest && !excuses_.Any(Happening::MemoryRefused, 0, index)) {
          Fault(events_[index].timeMs, "expected the request to leave before COMPLETE, found none");
        }
        return;
      }
    }
  }
  Fault(events_[index].timeMs, "expected no COMPLETE without a leave, found one");
}

// From the reason that is surest to the one that is only likely, so that a weak one is not used up.
void WordJudge::PayDisconnect(std::size_t index) {
  if (!PaySession(index) && !PayPreparation(index) && !PaySilent(index) && !PayThreadless(index)) {
    Fault(events_[index].timeMs, "expected no DISCONNECT, for nothing had failed, found one");
  }
}

// What is owed comes first, then what may be told but need not. The latest first: an earlier one
// has mostly been told already.
bool WordJudge::PaySession(std::size_t index) {
  for (const bool owed : {true, false}) {
    for (auto debt = disconnects_.rbegin(); debt != disconnects_.rend(); ++debt) {
      const Operation* const next = NextOfUnit(*debt->operation);
      const bool isOver = next != nullptr && next->first < index;
      if (!debt->isPaid && debt->isOwed == owed && debt->operation->decided < index && !isOver) {
        debt->isPaid = true;
        return true;
      }
    }
  }
  return false;
}

// A preparation that finds no device that it can use says so: within its callback, at start-up, or
// later on the tick's thread when it had to wait for an update to end.
bool WordJudge::PayPreparation(std::size_t index) {
  for (std::size_t i = 0; i < windows_.size(); ++i) {
    const Window& window = windows_[i];
    const bool tells = window.threadId == events_[index].threadId && window.Holds(index);
    const bool waits = window.kind == Window::Kind::DfuArrival && window.end < index;
    if (window.kind != Window::Kind::KeyboardArrival && (tells || waits) &&
        paidWindows_.count(i) == 0 && RefreshCouldFail(window, index)) {
      paidWindows_.insert(i);
      return true;
    }
  }
  return false;
}

// An operation that could not open its device has sent nothing. All that is seen of it is what kept
// it from that: a failure on a thread that does nothing else, or a device that left or came in
// front just then.
bool WordJudge::PaySilent(std::size_t index) {
  if (!LaunchedLast(index)) {
    return false;
  }
  for (std::size_t i = 0; i < index; ++i) {
    const Event& event = events_[i];
    const bool changed = event.what == Happening::Announced && event.side == Side::Dfu &&
                         ToldByMs(history_, event.timeMs) >= events_[index].timeMs;
    if ((changed || FailsToOpen(event)) && silentPaid_.insert(i).second) {
      return true;
    }
  }
  return false;
}

// An operation whose thread could not be made does nothing until an arrival ends it, and tells so
// unless its update goes on.
bool WordJudge::PayThreadless(std::size_t index) {
  for (std::size_t i = 0; i < index; ++i) {
    if (events_[i].what == Happening::CallFailed &&
        events_[i].call == platform::Call::CreateThread && silentPaid_.insert(i).second) {
      return true;
    }
  }
  return false;
}

// Whether the last thing on the wire was what a launch reads.
bool WordJudge::LaunchedLast(std::size_t index) const {
  for (std::size_t i = index; i-- > 0;) {
    if (events_[i].what == Happening::Transfer && events_[i].side == Side::Dfu) {
      const WINUSB_SETUP_PACKET& setup = events_[i].transfer.setup;
      return setup.RequestType == StandardToHost && setup.Value >> 8 == 2;
    }
  }
  return false;
}

// A thread that did anything else was an operation with a trace of its own, and was judged by that.
bool WordJudge::FailsToOpen(const Event& event) const {
  const auto doesMore = [&](const Event& other) {
    return other.threadId == event.threadId && other.what != Happening::CallFailed &&
           other.what != Happening::MemoryRefused;
  };
  const bool refused = event.what == Happening::MemoryRefused ||
                       (event.what == Happening::CallFailed && IsOfOpening(event.call));
  return refused && std::none_of(events_.begin(), events_.end(), doesMore);
}

// Whether there was anything that kept the device from being used. No device in DFU mode at all is
// reason enough. An interface descriptor that is not answered is none: the service goes on without
// it.
bool WordJudge::RefreshCouldFail(const Window& window, std::size_t index) const {
  i32 devices = 0;
  bool refused = false;
  bool disturbed = false;
  for (std::size_t i = 0; i < index; ++i) {
    const Event& event = events_[i];
    const bool inside = i >= window.begin;
    if (event.what == Happening::Announced && event.side == Side::Dfu) {
      devices += event.value == 1 ? 1 : -1;
      disturbed = disturbed || inside;
    }
    refused = refused || event.what == Happening::OpenRefused;
    if (inside && event.threadId == events_[index].threadId) {
      const bool isReply = event.what == Happening::Transfer && event.side == Side::Dfu;
      const bool isInterface = isReply && (event.transfer.setup.Value >> 8) == 4;
      disturbed = disturbed || event.what == Happening::CallFailed ||
                  event.what == Happening::MemoryRefused ||
                  (isReply && !isInterface && event.transfer.result != platform::UsbResult::Done);
    }
  }
  return devices <= 0 || refused || disturbed;
}

// What only might have been told is nobody's debt.
void WordJudge::LookAtUnpaid() {
  for (const Debt& debt : completes_) {
    if (debt.isOwed && !debt.isPaid) {
      Fault(debt.operation->endMs, "expected COMPLETE for the leave, found none");
    }
  }
  for (const Debt& debt : disconnects_) {
    if (debt.isOwed && !debt.isPaid) {
      Fault(debt.operation->endMs, "expected DISCONNECT for the update that ended, found none");
    }
  }
}

}  // namespace

std::vector<std::string> JudgeWords(const History& history, const TrialPlan& plan,
                                    const std::vector<Operation>& operations) {
  return history.events().empty() ? std::vector<std::string>()
                                  : WordJudge(history, plan, operations).Judge();
}

}  // namespace proof
