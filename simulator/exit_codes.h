// How vantrel-sim's commands exit. docs/simulator.md tells it to people and scripts.
#pragma once

namespace simulator {

// A script that packs and ships branches on them, so what each stands for does not change.
inline constexpr int ExitDone = 0;          // done and verified; for a dry run: would update
inline constexpr int ExitFailed = 1;        // refused as a package, or the update failed
inline constexpr int ExitBadArguments = 2;  // the command line, or a file that cannot be read
inline constexpr int ExitNothingToDo = 3;   // a gate of the update decision is closed

}  // namespace simulator
