// Holds every update decision against what the keyboard, the package and the battery said: START
// and a report, BATTERY, or nothing at all.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "proof/excuses.h"
#include "proof/plan.h"
#include "proof/windows.h"

namespace proof {

// Adds a sentence for each word or report that was due and did not come, or came and was not due.
// Returns the DISCONNECTs that decisions account for, as events of the history. What a decision saw
// is taken from the wire: the judge decides anew by that, not by the plan, since the keyboard may
// have been another one or not have answered.
std::set<std::size_t> JudgeDecisions(const std::vector<Event>& events,
                                     const std::vector<Window>& windows, const TrialPlan& plan,
                                     const Excuses& excuses, std::vector<std::string>& faults);

}  // namespace proof
