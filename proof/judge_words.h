// Holds the words that the user was told against what happened to the keyboards, the battery and
// the notifications: each one that was due was told, and no other.
#pragma once

#include <string>
#include <vector>

#include "proof/history.h"
#include "proof/plan.h"
#include "proof/replay.h"

namespace proof {

// The operations are those of the life, in the order in which they began. Returns a sentence for
// each word that was due and not told, or told and not due. What may be told but need not, for
// instance when an arrival comes just then, is no fault either way.
std::vector<std::string> JudgeWords(const History& history, const TrialPlan& plan,
                                    const std::vector<Operation>& operations);

}  // namespace proof
