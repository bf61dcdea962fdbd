// Draws a trial from a seed: the keyboard, the package, the troubles and who runs next.
#pragma once

#include "proof/plan.h"

namespace proof {

// The same seed always gives the same plan. Every value that a plan can have is drawn by some seed,
// on purpose also those that no keyboard maker would choose. A change to a table of draws gives all
// seeds new plans.
TrialPlan DrawTrial(u64 seed);

}  // namespace proof
