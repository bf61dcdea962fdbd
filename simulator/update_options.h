// What a run of an update is asked for, and what comes of it.
#pragma once

#include <optional>
#include <string>

#include "common/types.h"
#include "simulator/keyboard_options.h"
#include "simulator/memory_map_option.h"
#include "simulator/package.h"
#include "simulator/timeline.h"
#include "simulator/update_account.h"

namespace simulator {

struct UpdateRunOptions {
  Package package;
  KeyboardVersion keyboardVersion;
  u8 batteryPercent = 80;

  // Without it the keyboard is given memory wherever the package writes.
  std::optional<KeyboardMemory> memory;
  u16 transferSize = BootloaderOptions{}.transferSize;

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
