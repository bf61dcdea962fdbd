// One whole update, told as it happens: sets the tablet up, attaches a keyboard, starts the service
// and follows it until the keyboard runs the package's firmware or nothing more is to come.
#pragma once

#include <cstdio>

#include "common/types.h"
#include "simulator/package.h"
#include "simulator/timeline.h"

namespace simulator {

struct UpdateRunOptions {
  Package package;
  KeyboardVersion keyboardVersion;
  u8 batteryPercent = 80;
  bool realtime = false;
  TimelineOptions timeline;
};

// Runs the update on a machine of its own (so once per host process) and writes the timeline and
// the verdict to the stream. True when the keyboard ends up running the package's firmware, its
// flash equal to the package.
bool RunUpdate(const UpdateRunOptions& options, std::FILE* stream);

}  // namespace simulator
