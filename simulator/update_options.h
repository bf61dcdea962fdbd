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

// All that a run depends on. The same options give the same run, to the millisecond. The files that
// they name have been read by then: package and installed hold the bytes themselves.
struct UpdateRunOptions {
  // Lies on the tablet's drive, where the service finds it, before the service starts.
  Package package;
  KeyboardOptions keyboard;
  bool memoryIsMadeUp = true;        // wherever the package writes, because no map was told
  std::optional<Package> installed;  // what its flash holds instead of the options' firmware
  bool startsInDfuMode = false;      // left over from an update that broke off
  u64 attachMs = 0;                  // 0: before the service starts

  // 0 to 100, or 255 for a charge that Windows cannot tell.
  u8 batteryPercent = 80;

  // Whether session 1 has a user and a shell when the service starts. Without them there is nobody
  // to whom the service could tell a word.
  bool userLoggedOn = true;

  // 0: threads take turns in a fixed order. Any other number draws who goes next, and the same
  // number draws the same.
  u64 schedulerSeed = 0;

  // What is to go wrong; those of a time in their order.
  std::vector<Trouble> troubles;

  // The reason of the result that is hoped for; empty: none. With it the exit code tells whether
  // the run ended for that reason, whatever it stands for otherwise.
  std::string expected;

  // Paces the run by the wall clock, for people who watch. Times in the account stay virtual ones.
  bool realtime = false;
  std::string driveFolder;  // see TabletOptions
  TimelineOptions timeline;
};

// What came of a run. Only a keyboard that runs the package's firmware, its flash equal to the
// package, is "updated"; reason tells in one line what else happened.
struct UpdateResult {
  int exitCode = 0;  // see exit_codes.h
  std::string reason;

  // Virtual milliseconds from the first transfer to the keyboard's return.
  u64 updateMs = 0;

  // From the start of the service to the keyboard's return.
  AccountFigures account = {};
};

}  // namespace simulator
