#include "proof/judge.h"

#include "platform/machine/machine.h"
#include "proof/judge_leftovers.h"
#include "proof/judge_stillness.h"
#include "proof/judge_wire.h"
#include "proof/judge_words.h"
#include "proof/trial_report.h"
#include "simulator/foreign_keyboard.h"
#include "simulator/tablet.h"
#include "simulator/virtual_keyboard.h"

namespace proof {

void Judge::Watch(Keeper keep) {
  keep_ = std::move(keep);
  faults_ = stage_.machine().faults.Observe([this](const std::string& fault) { Violate(fault); });
  wire_ = stage_.machine().transfers.Observe(
      [this](const platform::TransferRecord& record) { TakeOne(flash_.See(record)); });
}

void Judge::Violate(const std::string& what) {
  Take({At(stage_.tablet.nowMs()) + what});
}

void Judge::TakeOne(const std::string& fault) {
  if (!fault.empty()) {
    Take({fault});
  }
}

// One fault brings others with it; the first few tell enough.
void Judge::Take(const std::vector<std::string>& faults) {
  constexpr std::size_t MostTold = 10;
  const std::scoped_lock lock(lock_);
  for (const std::string& fault : faults) {
    if (violations_.size() < MostTold) {
      violations_.push_back(fault);
      keep_(violations_);
    }
  }
}

std::vector<std::string> Judge::violations() const {
  const std::scoped_lock lock(lock_);
  return violations_;
}

// The wire first: how its operations ended is what the words and the stillness are judged by.
void Judge::ConcludeLife(bool quiet) {
  if (stage_.keyboard.strayDfuRequests() + stage_.second.strayDfuRequests() != 0) {
    Violate("expected DFU requests in DFU mode only, found one for a running keyboard");
  }
  if (stage_.foreign.reports() != 0) {
    Violate("expected nothing for another maker's keyboard, found a report");
  }
  TakeOne(flash_.Look());

  history_.Close();
  std::vector<std::string> faults;
  const std::vector<Operation> operations = JudgeWire(history_, plan_, faults);
  Take(faults);
  Take(JudgeWords(history_, plan_, operations));
  Take(JudgeStillness(history_, operations, stage_.tablet.nowMs()));
  if (quiet) {
    Take(JudgeLeftovers(history_, stage_.machine(), plan_));
  }
}

}  // namespace proof
