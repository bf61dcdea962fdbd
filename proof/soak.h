// Many trials, each drawn from a seed of its own, side by side in several processes; or one of a
// person's own plan.
#pragma once

#include <cstdio>
#include <string>

#include "proof/soak_figures.h"

namespace proof {

struct SoakOptions {
  u64 runs = 1000;
  u64 firstSeed = 1;
  u32 jobs = 2;
  bool parallel = false;     // all threads of a run at once; such a run does not repeat exactly
  bool trace = false;        // tell each trial on standard error
  bool stopAtFirst = false;  // begin no more trials once one has failed
};

// Runs the trials with the seeds firstSeed, firstSeed + 1 and so on, and writes a line for each of
// the first few that break a promise, in each way: the first violation, and how many more there
// are. At the end come what was run, the failed seeds, and the lines that repeat the first of them
// and make it smaller. True when all was run and kept.
bool RunSoak(const SoakOptions& options, std::FILE* stream, SoakFigures& figures);

// Runs the plan that the text tells, and writes what became of it. True when it kept the promise.
// Throws a std::runtime_error with a sentence when there is no such plan.
bool RunPlan(const std::string& text, const SoakOptions& options, std::FILE* stream);

// Makes the plan smaller as long as it fails, and writes the smallest one. False when it does not
// fail. Throws as RunPlan does.
bool ShrinkPlan(const std::string& text, std::FILE* stream);

// The text of a seed's plan.
std::string PlanOfSeed(u64 seed);

}  // namespace proof
