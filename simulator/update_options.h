// What a run of an update is asked for, and what comes of it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/types.h"
#include "simulator/package.h"
#include "simulator/scenario.h"
#include "simulator/timeline.h"
#include "simulator/trouble.h"
#include "simulator/update_account.h"

namespace simulator {

// All that a run depends on. The same options give the same run, to the millisecond.
struct UpdateRunOptions {
  Package package;
  KeyboardOptions keyboard;
  bool memoryIsMadeUp = true;        // wherever the package writes, because no map was told
  std::optional<Package> installed;  // what its flash holds instead of the options' firmware
  bool startsInDfuMode = false;      // left over from an update that broke off
  u64 attachMs = 0;                  // 0: before the service starts

  u8 batteryPercent = 80;
  bool userLoggedOn = true;
  u64 schedulerSeed = 0;
  std::vector<Trouble> troubles;  // those of a time in their order
  std::string expected;           // the reason of the result that is hoped for; empty: none

  bool realtime = false;
  std::string driveFolder;  // see TabletOptions
  TimelineOptions timeline;
};

// What came of a run. Only a keyboard that runs the package's firmware, its flash equal to the
// package, is "updated"; reason tells in one line what else happened.
struct UpdateResult {
  int exitCode = 0;
  std::string reason;
  u64 updateMs = 0;             // from the first word with the keyboard to its return
  AccountFigures account = {};  // from the start of the service to the keyboard's return
};

}  // namespace simulator
