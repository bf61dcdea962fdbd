// Holds the wire against the operations: every request is the one that was due, none is missing and
// none too many, and the operations follow each other as an update has them.
#pragma once

#include <string>
#include <vector>

#include "proof/replay.h"
#include "proof/windows.h"

namespace proof {

// The operations of a life, in the order in which they began. Adds a sentence for each request that
// nobody had to send. The other judges go by what it finds, so it comes before them. History is
// closed by then.
std::vector<Operation> JudgeWire(const History& history, const TrialPlan& plan,
                                 std::vector<std::string>& faults);

}  // namespace proof
