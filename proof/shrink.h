// Makes a plan that fails as small as it can be made, so that a person sees what matters.
#pragma once

#include <functional>
#include <string>

#include "proof/plan.h"

namespace proof {

// Leaves troubles out one by one and makes times and sizes smaller, as long as the trial breaks the
// promise in the same way: its first violation says the same, its numbers aside. run gives a
// trial's first violation, empty when there is none. Returns that of the smallest plan. run is
// called some hundred times and must give the same answer to the same plan; a trial whose threads
// run side by side does not.
std::string Shrink(TrialPlan& plan, const std::function<std::string(const TrialPlan&)>& run);

}  // namespace proof
