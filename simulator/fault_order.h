// One thing that is to go wrong, as text: what, where, and what it needs to know.
//
//     unplug@22.500s 1500        at that time
//     unplug@transfer17 1500 2   in front of that transfer
//     fail@call120 1             at that platform call
//     refuse@request5            at that request for memory
//
// Which kinds there are and what their numbers mean is a table of whoever makes them happen.
#pragma once

#include <string>
#include <vector>

#include "common/types.h"

namespace simulator {

enum class FaultPlace { Time, Transfer, Call, Request };

struct FaultOrder {
  std::string kind;
  FaultPlace place = FaultPlace::Time;
  u64 at = 0;  // milliseconds, or a number counted from 1
  std::vector<u64> numbers;
};

std::string FaultOrderText(const FaultOrder& order);

// False when the text is none; the order is of no use then.
bool ReadFaultOrder(const std::string& text, FaultOrder& order);

}  // namespace simulator
