// Many trials, each drawn from a seed of its own, side by side in several processes.
#pragma once

#include <cstdio>

#include "common/types.h"

namespace simulator {

struct SoakOptions {
  u64 runs = 1000;
  u64 firstSeed = 1;
  u32 jobs = 2;
  bool parallel = false;  // all threads of a run at once; such a run does not repeat exactly
  bool trace = false;     // tell the first life of each trial on standard error
};

// Runs the trials with the seeds firstSeed, firstSeed + 1 and so on. Writes a line for each that
// breaks a promise, which tells how to repeat it, and at the end what was run. True when none did.
bool RunSoak(const SoakOptions& options, std::FILE* stream);

}  // namespace simulator
