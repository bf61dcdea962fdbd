// What the service wrote to the debug output.
#pragma once

#include <cstdint>
#include <string>

#include "platform/machine/records.h"

namespace platform {

// One OutputDebugStringW, as it was written and when. Windows adds nothing to it, and a viewer
// joins or splits lines as it likes.
struct DebugLine {
  std::uint64_t timeMs;
  std::u16string text;  // of one write; not every one ends with a line end
};

// In the order of the writes, whichever thread they come from.
using DebugLog = RecordLog<DebugLine>;

}  // namespace platform
