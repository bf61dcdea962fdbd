// The update that the sweeps break in every place: as small as one can be that has everything, two
// elements over sectors of two sizes.
#pragma once

#include "simulator/soak/trial.h"

enum class Road { AtStartUp, OnArrival };

simulator::TrialPlan SmallUpdate(Road road);
