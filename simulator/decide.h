// vantrel-sim decide: what the service would decide about a keyboard and a package, and why.
#pragma once

#include <cstdio>

#include "simulator/json.h"
#include "simulator/update_run.h"

namespace simulator {

// Starts the service in a child process, ends it at the first word that it tells and reads what it
// compared: "gates" as DescribeGates tells them. "word" is what the user would be told, empty for
// none; "exitCode" is the command's.
Json DecideUpdate(const UpdateRunOptions& options);

void PrintDecision(const Json& decision, std::FILE* out);

}  // namespace simulator
