// What many trials came to. The figures of two soaks can be added up.
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "proof/trial_report.h"

namespace proof {

// Times are virtual. What counts the runs of one soak can be added to that of another with other
// seeds.
struct SoakFigures {
  u64 runs = 0;
  u64 lives = 0;
  u64 virtualMs = 0;
  u64 platformCalls = 0;
  std::vector<u64> failedSeeds;
  std::map<std::string, u64> troubles;
  std::map<std::string, u64> words;

  void Add(u64 seed, const TrialReport& report);
};

// For people: a line, and what happened how often when no run failed. With failures the screen is
// theirs.
void WriteFigures(const SoakFigures& figures, std::FILE* stream);

// One line of JSON for proof/add-figures: numbers and lists of the same names for every soak.
std::string FiguresJson(const SoakFigures& figures);

}  // namespace proof
