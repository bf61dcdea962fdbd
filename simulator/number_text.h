// Numbers as people read them.
#pragma once

#include <string>

#include "common/types.h"

namespace simulator {

// "0x08000000".
std::string AddressText(u32 address);

// "50,000".
std::string CountText(u64 count);

}  // namespace simulator
