// The line that moves while a soak runs: how many runs are done and failed, and how fast it goes.
// There is none where the output is no terminal.
#pragma once

#include <chrono>
#include <cstdio>

#include "common/types.h"

namespace proof {

// Whoever writes another line to the same stream clears this one first.
class ProgressLine {
 public:
  ProgressLine(std::FILE* stream, u64 runs);

  // Draws the line, a few times a second at the most.
  void Show(u64 done, u64 failed);

  // Takes the line away, for what is to be written in its place.
  void Clear();

 private:
  using Clock = std::chrono::steady_clock;

  std::FILE* const stream_;
  const u64 runs_;
  const bool isTerminal_;
  const Clock::time_point start_ = Clock::now();
  Clock::time_point lastShown_{};
};

}  // namespace proof
