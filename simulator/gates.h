// The gates of the update decision, for people.
#pragma once

#include "simulator/json.h"

namespace simulator {

// What the service of this process read when it decided last, gate by gate in the order in which
// they are asked: each with the "keyboard"'s or battery's value, the "package"'s (or what is
// "needed"), and "outcome": "open", "closed" or "not asked". To be called on the thread that
// decides, or when it is over.
Json DescribeGates();

}  // namespace simulator
