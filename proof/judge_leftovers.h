// Nothing is left over when no update is under way: no handle, no block of the heap, no memory but
// what belongs to the last device.
#pragma once

#include <string>
#include <vector>

#include "proof/history.h"
#include "proof/plan.h"

namespace proof {

std::vector<std::string> JudgeLeftovers(const History& history, platform::Machine& machine,
                                        const TrialPlan& plan);

}  // namespace proof
