#include "proof/judge_decisions.h"

#include <optional>

#include "proof/trial_report.h"
#include "simulator/wire_requests.h"

namespace proof {

namespace {

// In percent. Written down once more, so that a change in the service shows.
constexpr u32 EnoughPercent = 30;
// Where the product string carries the version, in characters; a dot stands between two digits.
constexpr std::size_t DigitPlaces[] = {10, 12, 14, 16};

// What one decision saw, told and sent, in the order of the life.
struct Decision {
  std::optional<KeyboardVersion> keyboard;  // as its last collection told it
  std::optional<u32> charge;
  std::size_t seen = 0;  // the last event of its looking
  std::vector<std::size_t> starts;
  std::vector<std::size_t> batteries;
  std::vector<std::size_t> disconnects;
  std::vector<std::size_t> reports;
};

// A character that is no digit, or is missing, reads as 0.
u8 DigitAt(const platform::Bytes& text, std::size_t place) {
  const std::size_t at = place * sizeof(char16_t);
  const bool isDigit =
      at + 1 < text.size() && text[at + 1] == 0 && text[at] >= '0' && text[at] <= '9';
  return isDigit ? static_cast<u8>(text[at] - '0') : u8{0};
}

KeyboardVersion VersionIn(const platform::Bytes& text) {
  return {DigitAt(text, DigitPlaces[0]), DigitAt(text, DigitPlaces[1]),
          DigitAt(text, DigitPlaces[2]), DigitAt(text, DigitPlaces[3])};
}

// The same keyboard in model and revision, with older firmware. The third and fourth numbers say
// which keyboard it is, so they are not compared as more or less.
bool IsFor(const KeyboardVersion& package, const KeyboardVersion& keyboard) {
  const bool isNewer = package.major != keyboard.major ? package.major > keyboard.major
                                                       : package.minor > keyboard.minor;
  return package.modelId == keyboard.modelId && package.hwRev == keyboard.hwRev && isNewer;
}

class DecisionJudge {
 public:
  DecisionJudge(const std::vector<Event>& events, const TrialPlan& plan, const Excuses& excuses,
                std::vector<std::string>& faults)
      : events_(events), plan_(plan), excuses_(excuses), faults_(faults) {}

  void Judge(const Window& window);
  void LookOutside(const std::vector<Window>& windows);
  std::set<std::size_t> disconnects() { return std::move(disconnects_); }

 private:
  void Gather(const Window& window);
  void GatherTransfer(std::size_t index);
  bool WasDisturbed() const;
  bool KeyboardStayed() const;
  void ExpectNothing(const char* because);
  void ExpectBattery();
  void ExpectUpdate();
  void ExpectReports();
  void ExpectEndOfReports();
  bool Arrived(std::size_t report) const {
    return events_[report].transfer.result == platform::UsbResult::Done;
  }
  void Fault(std::size_t index, const std::string& what);

  const std::vector<Event>& events_;
  const TrialPlan& plan_;
  const Excuses& excuses_;
  std::vector<std::string>& faults_;
  const Window* window_ = nullptr;
  Decision decision_;
  std::set<std::size_t> disconnects_;
};

void DecisionJudge::Fault(std::size_t index, const std::string& what) {
  const u64 timeMs = index < events_.size() ? events_[index].timeMs : events_.back().timeMs;
  faults_.push_back(At(timeMs) + what);
}

// By the thread of the window: other threads go on while it decides.
void DecisionJudge::Gather(const Window& window) {
  window_ = &window;
  decision_ = {};
  for (std::size_t i = window.begin; i < window.end; ++i) {
    const Event& event = events_[i];
    if (event.threadId != window.threadId) {
      continue;
    }
    if (event.what == Happening::Transfer && event.side == Side::Hid) {
      GatherTransfer(i);
    } else if (event.what == Happening::BatteryRead) {
      decision_.charge = event.value;
      decision_.seen = i;
    } else if (event.what == Happening::Word) {
      (event.text == "START"     ? decision_.starts
       : event.text == "BATTERY" ? decision_.batteries
                                 : decision_.disconnects)
          .push_back(i);
    }
  }
}

// All collections tell the same string, so the last one that answered counts.
void DecisionJudge::GatherTransfer(std::size_t index) {
  const platform::TransferRecord& transfer = events_[index].transfer;
  if (transfer.setup.Request == HidSetReportRequest) {
    decision_.reports.push_back(index);
  } else if (transfer.result == platform::UsbResult::Done) {
    decision_.keyboard = VersionIn(transfer.data);
    decision_.seen = index;
  }
}

// Whether something happened to the decision after which its words or reports may be missing.
bool DecisionJudge::WasDisturbed() const {
  return !window_->ended || excuses_.PackageFolderMissed() ||
         excuses_.Any(Happening::StopSent, 0, window_->end) ||
         excuses_.Any(Happening::Ended, 0, window_->end) ||
         excuses_.SomethingFailed(window_->begin, window_->end, window_->threadId);
}

// Whether a keyboard's collections were there from the window's begin to its end, and no keyboard
// in DFU mode, which the start-up sequence would turn to first.
bool DecisionJudge::KeyboardStayed() const {
  i32 collections = 0;
  i32 dfuDevices = 0;
  for (std::size_t i = 0; i < events_.size(); ++i) {
    const Event& event = events_[i];
    // A device is out of the lists a moment before that is told.
    if (i > window_->end && event.timeMs > events_[window_->end].timeMs) {
      break;
    }
    if (event.what != Happening::Announced) {
      continue;
    }
    // Another maker's too: it makes the list longer than the room that was asked for it.
    if (i > window_->begin) {
      return false;
    }
    if (event.unit == Unit::Other) {
      continue;
    }
    const i32 step = event.value == 1 ? 1 : -1;
    collections += event.side == Side::Hid ? step : 0;
    dfuDevices += event.side == Side::Dfu ? step : 0;
  }
  return collections > 0 && dfuDevices == 0;
}

// In the order in which the service has to ask: the keyboard, the package, the battery.
void DecisionJudge::Judge(const Window& window) {
  Gather(window);
  if (!decision_.keyboard.has_value()) {
    ExpectNothing("no keyboard that told its version");
    if (!WasDisturbed() && KeyboardStayed()) {
      Fault(window.begin, "expected a look at the keyboard, found none");
    }
  } else if (!IsFor(plan_.package.version, *decision_.keyboard)) {
    ExpectNothing("a keyboard that the package is not for");
  } else if (!decision_.charge.has_value()) {
    ExpectNothing("a battery that was not asked");
    if (!WasDisturbed()) {
      Fault(decision_.seen, "expected a look at the battery, found none");
    }
  } else if (*decision_.charge < EnoughPercent) {
    ExpectBattery();
  } else {
    ExpectUpdate();
  }
}

// Neither words nor reports, and no excuse: what must not happen may not happen in trouble either.
void DecisionJudge::ExpectNothing(const char* because) {
  for (const auto* found : {&decision_.starts, &decision_.batteries}) {
    if (!found->empty()) {
      Fault(found->front(), "expected no word because of " + std::string(because) + ", found " +
                                events_[found->front()].text);
    }
  }
  if (!decision_.reports.empty()) {
    Fault(decision_.reports.front(),
          "expected no report because of " + std::string(because) + ", found one");
  }
}

// The word may be missing when nobody could read it. The update may not begin in any case.
void DecisionJudge::ExpectBattery() {
  const std::size_t told = decision_.batteries.size();
  const bool mayBeMissing =
      WasDisturbed() || excuses_.ForNoWord(decision_.seen, window_->end, window_->threadId);
  if (told > 1 || (told == 0 && !mayBeMissing)) {
    Fault(decision_.seen, "expected BATTERY once for " + std::to_string(*decision_.charge) +
                              " %, found it " + std::to_string(told) + " times");
  }
  if (!decision_.starts.empty() || !decision_.reports.empty()) {
    Fault(decision_.seen,
          "expected no update with " + std::to_string(*decision_.charge) + " %, found one");
  }
}

// The user must know before the keyboard goes dead, so the word comes in front of the report.
void DecisionJudge::ExpectUpdate() {
  if (!decision_.batteries.empty()) {
    Fault(decision_.seen,
          "expected no BATTERY with " + std::to_string(*decision_.charge) + " %, found it");
  }
  const std::size_t told = decision_.starts.size();
  const std::size_t due = decision_.reports.empty() ? window_->end : decision_.reports.front();
  const bool mayBeMissing = excuses_.ForNoWord(decision_.seen, due, window_->threadId) ||
                            (decision_.reports.empty() && WasDisturbed());
  if (told > 1 || (told == 0 && !mayBeMissing)) {
    Fault(decision_.seen, "expected START once, found it " + std::to_string(told) + " times");
  }
  if (told == 1 && decision_.starts.front() > due) {
    Fault(decision_.starts.front(), "expected START before the report, found it behind");
  }
  ExpectReports();
  ExpectEndOfReports();
}

// A second one only when the first did not get through.
void DecisionJudge::ExpectReports() {
  const std::vector<std::size_t>& reports = decision_.reports;
  for (std::size_t i = 0; i < reports.size(); ++i) {
    if (i >= 2 || (i == 1 && Arrived(reports[0]))) {
      Fault(reports[i], "expected no further report, found one");
    }
  }
  const bool oneGotThrough = !reports.empty() && Arrived(reports.back());
  const bool changed = excuses_.Any(Happening::Announced, window_->begin, window_->end);
  if (reports.size() < 2 && !oneGotThrough && !changed && !WasDisturbed()) {
    Fault(decision_.seen, "expected a report, and a second one when it fails, found " +
                              std::to_string(reports.size()));
  }
}

// Both have failed: the user is told. One got through: nothing is wrong yet.
void DecisionJudge::ExpectEndOfReports() {
  const bool oneGotThrough = !decision_.reports.empty() && Arrived(decision_.reports.back());
  const bool begun = !decision_.starts.empty() || !decision_.reports.empty();
  if (oneGotThrough || !begun) {
    return;
  }
  if (!decision_.disconnects.empty()) {
    disconnects_.insert(decision_.disconnects.front());
    return;
  }
  const bool mayBeMissing =
      !window_->ended || excuses_.ForNoWord(decision_.seen, window_->end, window_->threadId);
  if (!mayBeMissing) {
    Fault(decision_.seen, "expected DISCONNECT because no report got through, found none");
  }
}

// Decisions are made when a keyboard comes and at the start. A word at another time is one too
// many.
void DecisionJudge::LookOutside(const std::vector<Window>& windows) {
  for (std::size_t i = 0; i < events_.size(); ++i) {
    const Event& event = events_[i];
    const bool isReport = event.what == Happening::Transfer && event.side == Side::Hid &&
                          event.transfer.setup.Request == HidSetReportRequest;
    const bool isWord =
        event.what == Happening::Word && (event.text == "START" || event.text == "BATTERY");
    if (!isReport && !isWord) {
      continue;
    }
    bool inside = false;
    for (const Window& window : windows) {
      inside = inside || (window.kind != Window::Kind::DfuArrival &&
                          window.threadId == event.threadId && window.Holds(i));
    }
    if (!inside) {
      Fault(i, "expected no decision without a keyboard's arrival, found " +
                   (isWord ? event.text : std::string("a report")));
    }
  }
}

}  // namespace

std::set<std::size_t> JudgeDecisions(const std::vector<Event>& events,
                                     const std::vector<Window>& windows, const TrialPlan& plan,
                                     const Excuses& excuses, std::vector<std::string>& faults) {
  DecisionJudge judge(events, plan, excuses, faults);
  for (const Window& window : windows) {
    if (window.kind != Window::Kind::DfuArrival) {
      judge.Judge(window);
    }
  }
  judge.LookOutside(windows);
  return judge.disconnects();
}

}  // namespace proof
