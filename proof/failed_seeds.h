// What people are told of the seeds that failed.
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "proof/trial_report.h"

namespace proof {

// The first violation of a failed trial, the number of its others, and what ended the life when
// that was something else. Starts with the name.
void WriteFailure(const std::string& name, const TrialReport& report, std::FILE* stream);

// Collects a soak's failed seeds. A fault that many runs meet would fill screen after screen with
// the same sentence, so seeds with the same first violation are told together.
class FailedSeeds {
 public:
  explicit FailedSeeds(std::FILE* stream) : stream_(stream) {}

  // Writes the seed's line, unless enough of the kind, or in all, have been written.
  void Add(u64 seed, const TrialReport& report);

  // The closing lines: the seeds of each kind, and how to repeat the first of all. Writes nothing
  // when none failed.
  void WriteAll() const;

 private:
  std::FILE* const stream_;
  std::map<std::string, std::vector<u64>> ofKind_;  // in the order in which they failed
  u32 written_ = 0;
};

}  // namespace proof
