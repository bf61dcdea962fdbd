// The stretches of a life in which the service decides or prepares: a callback from its begin to
// its return, and the start-up sequence.
#pragma once

#include <vector>

#include "proof/history.h"

namespace proof {

struct Window {
  enum class Kind { StartUp, KeyboardArrival, DfuArrival };

  Kind kind = Kind::StartUp;
  u32 threadId = 0;
  std::size_t begin = 0;  // events of the history
  std::size_t end = 0;    // the event that ended it; the number of events when nothing did
  bool ended = false;

  bool Holds(std::size_t index) const { return index >= begin && index <= end; }
};

// The start-up sequence comes first, then the callbacks in the order of their begins. One that had
// not returned at the end of the life reaches beyond the last event.
std::vector<Window> FindWindows(const std::vector<Event>& events);

}  // namespace proof
