// Nothing stands still: while a keyboard lies erased, somebody speaks to it or has said what is
// wrong.
#pragma once

#include <string>
#include <vector>

#include "proof/history.h"
#include "proof/replay.h"

namespace proof {

// From an erase's first transfer until the keyboard has left or DISCONNECT was told, a device that
// has not asked to be left alone is spoken to within the time of a tick. Returns a sentence for
// each time that it was not. endMs: when the life ended. The time in which plans held threads up
// does not count.
std::vector<std::string> JudgeStillness(const History& history,
                                        const std::vector<Operation>& operations, u64 endMs);

}  // namespace proof
