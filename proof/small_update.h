// The update that the sweeps break in every place: as small as one can be that has everything, two
// elements over sectors of two sizes.
#pragma once

#include "proof/plan.h"

namespace proof {

// The service finds a keyboard that is there when it starts by another way than one that comes
// later, so both are swept.
enum class Road { AtStartUp, OnArrival };

TrialPlan SmallUpdate(Road road);

}  // namespace proof
