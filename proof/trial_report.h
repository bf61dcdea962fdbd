// What became of a trial or of one of its lives, and its text: the one form in which processes of
// the proof tell each other.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "common/types.h"

namespace proof {

struct TrialReport {
  // Of the promise; empty for a good trial. Each life's in the order of their times.
  std::vector<std::string> violations;

  // The last of them again, when it is that a life did not get to its end: its process crashed, or
  // none of its threads could run any more. Empty otherwise.
  std::string earlyEnd;

  bool updated = false;
  std::string keyboard;  // in the end: "firmware 1.0.2.1", "DFU mode"; empty after an early end
  u32 lives = 0;
  u64 virtualMs = 0;
  u64 platformCalls = 0;  // of the first life

  // What there was of each up to the end of the troubles.
  u64 troubledCalls = 0;
  u64 troubledTransfers = 0;
  u64 troubledMemoryRequests = 0;

  // The number of the last transfer of the first life that carried firmware.
  u64 lastBlockTransfer = 0;

  std::map<std::string, u64> troubles;  // what happened, by kind
  std::map<std::string, u64> words;     // told to the user
};

// Lines of a name and a value, as plans have them, a line for each violation and each count.
std::string ReportText(const TrialReport& report);

// What cannot be read is left out: the text comes from ReportText, perhaps with its end missing.
TrialReport ReadReport(const std::string& text);

// How every violation begins: "at 12.345 s: ".
std::string At(u64 timeMs);

// When a violation was, as its text says; the end of time when it does not.
u64 TimeOfViolation(const std::string& violation);

// What a violation says, its numbers aside: the same for one fault in plans of many kinds.
std::string KindOfViolation(const std::string& violation);

}  // namespace proof
