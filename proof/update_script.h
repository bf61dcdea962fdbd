// What a whole update has to send to a keyboard, from the package and the keyboard's memory map
// alone.
#pragma once

#include <vector>

#include "proof/plan.h"

namespace proof {

// What a whole update has to send to a keyboard of the plan.
struct UpdateScript {
  // What lies in one sector of one element. The blocks of a piece are numbered anew from its start.
  struct Piece {
    u32 address = 0;
    std::vector<u8> bytes;
  };
  std::vector<u32> erased;     // sectors, in the order of the memory map
  std::vector<Piece> written;  // in the order of the package, cut at the sectors
  u16 transferSize = 0;
  u16 alternateSetting = 0;
};

// The plan must be sound (see FaultOfPlan).
UpdateScript ScriptOf(const TrialPlan& plan);

}  // namespace proof
