// One thing that is to go wrong, as text: what, where, and what it needs to know.
//
//     unplug@22.500s 1500        at that time
//     unplug@transfer17 1500 2   in front of that transfer
//     fail@call120 1             at that platform call
//     refuse@request5            at that request for memory
//     error:errWRITE@block3      at that block of data that the keyboard gets
//     busy@erase2                at that erase
//     gone@report                when it is asked into DFU mode
//     slow@return                when it is back as a DFU device
//
// Which kinds there are and what their numbers mean is a table of whoever makes them happen.
#pragma once

#include <string>
#include <vector>

#include "common/types.h"

namespace simulator {

// A time is that of the machine's clock. A transfer, a call and a request count over the whole run;
// a block and an erase count in the keyboard.
enum class FaultPlace : u8 { Time, Transfer, Call, Request, Block, Erase, Report, Return };

struct FaultOrder {
  std::string kind;
  std::string detail;  // behind a ":", empty for none
  FaultPlace place = FaultPlace::Time;
  u64 at = 0;  // milliseconds, or a number counted from 1; 0 where a place is met once
  std::vector<u64> numbers;
};

std::string FaultOrderText(const FaultOrder& order);

// False when the text is none; the order is of no use then.
bool ReadFaultOrder(const std::string& text, FaultOrder& order);

}  // namespace simulator
