// The protocol of the three operations, told once more from what the devices answered: which
// request is due, when, and what becomes of the operation. What is on the wire is held against it.
#pragma once

#include <string>
#include <vector>

#include "proof/conversation.h"
#include "proof/update_script.h"

namespace proof {

// Replays the operation whose thread has these events of the history. What was not as it should
// have been is added to the faults, a sentence each. It is over with the first one. ofThread has
// one event at least.
Operation Replay(const std::vector<Event>& events, const std::vector<std::size_t>& ofThread,
                 const UpdateScript& script, std::vector<std::string>& faults);

}  // namespace proof
