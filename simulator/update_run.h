// One whole update, told as it happens: sets the tablet up, attaches a keyboard, starts the service
// and follows it until the keyboard runs the package's firmware or nothing more is to come.
#pragma once

#include <cstdio>
#include <vector>

#include "simulator/update_options.h"

namespace simulator {

// The memory that a keyboard has for a package when nobody told a map.
std::vector<FlashRegion> FlashFor(const Package& package);

// The keyboard of a run.
KeyboardOptions KeyboardFor(const UpdateRunOptions& options);

// Runs the update on a machine of its own (so once per host process) and writes the timeline and
// the verdict to the stream.
UpdateResult RunUpdate(const UpdateRunOptions& options, std::FILE* stream);

}  // namespace simulator
