// The update that the sweeps break in every place: as small as one can be that has everything, two
// elements over sectors of two sizes.
#pragma once

#include "proof/plan.h"

namespace proof {

enum class Road { AtStartUp, OnArrival };

TrialPlan SmallUpdate(Road road);

}  // namespace proof
