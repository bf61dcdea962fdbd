// One whole update, told as it happens: sets the tablet up, attaches a keyboard, starts the service
// and follows it until the keyboard runs the package's firmware or nothing more is to come.
#pragma once

#include <cstdio>
#include <vector>

#include "simulator/json.h"
#include "simulator/update_options.h"

namespace simulator {

class VirtualKeyboard;

// The keyboard of a run.
// It boots what it knows: the package, what was installed, and the simulator's own images.
KeyboardOptions KeyboardFor(const UpdateRunOptions& options);

// Puts the installed package, if there is one, into its flash. Before it is attached.
void FillFlash(const UpdateRunOptions& options, VirtualKeyboard& keyboard);

// Runs the update on a machine of its own (so once per host process) and writes the timeline and
// the verdict to the stream.
//
// "exitCode", "result" and "updateMs" tell what came of it, from the first word with the keyboard
// to its return. The rest is for whoever draws it: "gates", "sectors", "dropped", "phases", "words"
// and "log", as docs/vantrel-sim.schema.json has them.
Json RunUpdate(const UpdateRunOptions& options, std::FILE* stream);

}  // namespace simulator
