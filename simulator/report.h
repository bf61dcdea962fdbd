// The page that shows a run: one file that needs no other, made of a template and what the run
// told.
#pragma once

#include <string>

#include "simulator/json.h"

namespace simulator {

// Whether a page can be written there, found out before a run that takes long. Leaves nothing
// behind; reason goes on from the file's name.
bool CanWriteReport(const std::string& path, std::string& reason);

// Writes what the update command tells as a page, beside its place and then renamed. False: reason
// as above.
bool WriteReport(const std::string& path, const Json& told, std::string& reason);

}  // namespace simulator
