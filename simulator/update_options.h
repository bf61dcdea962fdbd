// What a run of an update is asked for, and what comes of it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/types.h"
#include "simulator/package.h"
#include "simulator/scenario.h"
#include "simulator/timeline_options.h"
#include "simulator/trouble.h"

namespace simulator {

// All that a run depends on. The same options give the same run, to the millisecond. The files that
// they name have been read by then: package and installed hold the bytes themselves.
struct UpdateRunOptions : Scenario {
  // Lies on the tablet's drive, where the service finds it, before the service starts.
  Package package;
  bool memoryIsMadeUp = true;        // wherever the package writes, because no map was told
  std::optional<Package> installed;  // what its flash holds instead of the options' firmware
  bool startsInDfuMode = false;      // left over from an update that broke off

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

}  // namespace simulator
