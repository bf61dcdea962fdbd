// vantrel-sim decide: what the service would decide about a keyboard and a package, and why.
#pragma once

#include <cstdio>

#include "simulator/json.h"
#include "simulator/update_run.h"

namespace simulator {

// Starts the service in a child process, ends it at the first word that it tells and reads what it
// compared. "gates" holds them in the order in which they are asked, each with the "keyboard"'s or
// battery's value, the "package"'s (or what is "needed"), and "outcome": "open", "closed" or
// "not asked". "word" is what the user would be told, empty for none; "exitCode" is the command's.
Json DecideUpdate(const UpdateRunOptions& options);

void PrintDecision(const Json& decision, std::FILE* out);

}  // namespace simulator
