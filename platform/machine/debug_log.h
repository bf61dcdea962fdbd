// What the service wrote to the debug output, with the virtual time of each write.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/machine/scheduler.h"

namespace platform {

struct DebugLine {
  std::uint64_t timeMs;
  std::u16string text;  // of one write; not every one ends with a line end
};

class DebugLog {
 public:
  explicit DebugLog(Scheduler& scheduler) : scheduler_(scheduler) {}

  // --- For the script of a run ---

  std::vector<DebugLine> Lines() const;

  // Forgets what was written so far.
  void Clear();

  // Sees each write as it is made, on the writing thread; null for none.
  void Observe(std::function<void(const DebugLine&)> observer);

  // --- For the calls of the layer ---

  void Write(std::u16string text);

 private:
  Scheduler& scheduler_;
  mutable std::mutex lock_;
  std::vector<DebugLine> lines_;
  std::function<void(const DebugLine&)> observer_;
};

}  // namespace platform
