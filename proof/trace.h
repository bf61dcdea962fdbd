// The trace of a trial on standard error: its plan, and what happens in each life, with the
// violations in their places.
//
// A life's process writes its lines into a file of the trial's, which outlives it. Only then is it
// known what was wrong, so the two are brought together by their times.
#pragma once

#include <cstdio>

#include "proof/plan.h"
#include "proof/trial_report.h"

namespace proof {

// Made and used by the trial's process; lives are handed the open file and inherit it.
class Trace {
 public:
  // Tells the plan. Writes nothing when the plan is not to be traced.
  explicit Trace(const TrialPlan& plan);
  ~Trace();
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  // Where a life writes its timeline, from an empty file on; null when nothing is traced.
  std::FILE* file() const { return file_; }

  // Tells the life that has just ended, with what it did wrong.
  void TellLife(u32 number, const std::vector<std::string>& violations);

 private:
  std::FILE* file_ = nullptr;
};

}  // namespace proof
