#include "proof/shrink.h"

#include <algorithm>
#include <variant>

#include "proof/plan_text.h"
#include "proof/trial_report.h"

namespace proof {

namespace {

constexpr u64 SmallestTransfer = 64;

// A time or a size of a plan, and how small it may become.
struct PlanNumber {
  std::variant<u16*, u32*, u64*> place;
  u64 least = 0;
  bool isSize = true;  // false: of all smaller values only the least makes a plan simpler

  u64 Get() const {
    return std::visit([](const auto* number) -> u64 { return *number; }, place);
  }
  void Set(u64 value) const {
    std::visit([=](auto* number) { *number = static_cast<std::decay_t<decltype(*number)>>(value); },
               place);
  }
};

// Always the same ones in the same order for plans with as many troubles and elements.
std::vector<PlanNumber> NumbersOf(TrialPlan& plan) {
  std::vector<PlanNumber> numbers;
  for (Trouble& trouble : plan.troubles) {
    numbers.push_back({&trouble.at, trouble.kind->place == FaultPlace::Time ? 0u : 1u});
    for (std::size_t i = 0; i < trouble.kind->numberCount && trouble.kind->most > 0xFF; ++i) {
      numbers.push_back({&trouble.numbers[i]});  // bytes are codes, such as a device's status
    }
  }
  for (TargetDraft& target : plan.packageDraft.targets) {
    for (ElementDraft& element : target.elements) {
      numbers.push_back({&element.sizeBytes, 1});
    }
  }
  KeyboardOptions& keyboard = plan.keyboard;
  for (ImagePart& part : keyboard.firmware) {
    numbers.push_back({&part.sizeBytes, ImageRecordBytes(keyboard.firmware.size())});
  }
  BootloaderOptions& bootloader = keyboard.bootloader;
  numbers.push_back({&bootloader.transferSize, SmallestTransfer});
  for (u32* const place :
       {&bootloader.eraseBaseMs, &bootloader.erasePer16KiBMs, &bootloader.writeMs,
        &bootloader.setAddressMs, &bootloader.manifestMs, &keyboard.restartMs,
        &keyboard.leaveDelayMs, &keyboard.detachDelayMs, &keyboard.refusedReports}) {
    numbers.push_back({place});
  }
  numbers.push_back({&plan.attachMs});
  numbers.push_back({&plan.schedulerSeed, 0, false});
  return numbers;
}

// Greedy: it keeps what still fails and never goes back. A trial takes milliseconds, so a few
// hundred do not matter; the smallest plan of all it need not find.
class Shrinker {
 public:
  Shrinker(TrialPlan& plan, const std::function<std::string(const TrialPlan&)>& run)
      : plan_(plan), run_(run), violation_(run(plan)), kind_(KindOfViolation(violation_)) {}

  // A trouble that could not go before may go once a number is smaller, so it is tried until
  // nothing changes.
  std::string Shrink() {
    for (bool did = !violation_.empty(); did;) {
      did = LeaveOut();
      did = MakeSmaller() || did;
    }
    return violation_;
  }

 private:
  // Keeps the candidate when it fails as the plan does.
  bool Try(TrialPlan candidate) {
    SetPackage(candidate, candidate.packageDraft);
    const std::vector<Trouble>& troubles = candidate.troubles;
    if (!std::is_sorted(troubles.begin(), troubles.end(), HappensBefore) ||
        !FaultOfPlan(candidate).empty()) {
      return false;
    }
    const std::string violation = run_(candidate);
    if (violation.empty() || KindOfViolation(violation) != kind_) {
      return false;
    }
    plan_ = candidate;
    violation_ = violation;
    return true;
  }

  // Places are pointers into one plan: they are looked up anew in each candidate.
  bool TryNumber(std::size_t index, u64 value) {
    TrialPlan candidate = plan_;
    NumbersOf(candidate)[index].Set(value);
    return Try(candidate);
  }

  // From the last one on: later troubles mostly follow from earlier ones.
  bool LeaveOut() {
    bool did = false;
    for (std::size_t i = plan_.troubles.size(); i-- > 0;) {
      TrialPlan candidate = plan_;
      candidate.troubles.erase(candidate.troubles.begin() + static_cast<std::ptrdiff_t>(i));
      did = Try(candidate) || did;
    }
    return did;
  }

  bool MakeSmaller() {
    bool did = false;
    for (std::size_t i = 0; i < NumbersOf(plan_).size(); ++i) {
      did = MakeSmaller(i) || did;
    }
    return did;
  }

  // The smallest value first; after that between what is too small and what is known to do.
  bool MakeSmaller(std::size_t index) {
    const PlanNumber number = NumbersOf(plan_)[index];
    u64 low = number.least;
    u64 high = number.Get();
    if (high <= low) {
      return false;
    }
    if (TryNumber(index, low)) {
      return true;
    }
    const u64 before = high;
    while (number.isSize && high - low > 1) {
      const u64 middle = low + (high - low) / 2;
      (TryNumber(index, middle) ? high : low) = middle;
    }
    return high < before;
  }

  TrialPlan& plan_;
  const std::function<std::string(const TrialPlan&)>& run_;
  std::string violation_;
  const std::string kind_;
};

}  // namespace

std::string Shrink(TrialPlan& plan, const std::function<std::string(const TrialPlan&)>& run) {
  return Shrinker(plan, run).Shrink();
}

}  // namespace proof
