// Draws a trial from a seed: the keyboard, the package, the troubles and who runs next.
#pragma once

#include "proof/plan.h"

namespace proof {

// The same seed always gives the same plan.
TrialPlan DrawTrial(u64 seed);

}  // namespace proof
