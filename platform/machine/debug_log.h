// What the service wrote to the debug output.
#pragma once

#include <cstdint>
#include <string>

#include "platform/machine/records.h"

namespace platform {

struct DebugLine {
  std::uint64_t timeMs;
  std::u16string text;  // of one write; not every one ends with a line end
};

using DebugLog = RecordLog<DebugLine>;

}  // namespace platform
