// A wait of the service that is over: a Sleep, or a wait for objects with a time-out. Times are
// virtual.
#pragma once

#include <cstdint>

namespace platform {

struct WaitRecord {
  std::uint32_t threadId;
  std::uint64_t timeoutMs;  // as the caller gave it; never 0 and never INFINITE
  std::uint64_t startMs;
  std::uint64_t endMs;  // earlier than the time-out when an object was there first
};

}  // namespace platform
