// Nothing is left over when no update is under way: no handle, no block of the heap, no memory but
// what belongs to the last device.
#pragma once

#include <string>
#include <vector>

#include "proof/history.h"
#include "proof/plan.h"

namespace proof {

// Returns a sentence for each kind of thing of which more is left than there may be. For a life
// whose last update has come to its end; a device that asked for hours of peace is waited for by an
// operation that is still at work, and then nothing is judged.
std::vector<std::string> JudgeLeftovers(const History& history, platform::Machine& machine,
                                        const TrialPlan& plan);

}  // namespace proof
