// Work that is done in a host process of its own and answers with JSON.
#pragma once

#include <functional>
#include <string>

#include "simulator/json.h"

namespace simulator {

// Does the work in a child process and returns what it answered. It is given a folder for a
// tablet's drive, which is gone afterwards whatever became of the child. An interrupted process
// ends its child, deletes the folder and dies of the signal.
//
// Throws when there is no folder to be had, when the work threw, or when the child ended without an
// answer. Called by a process with one thread.
Json AskChild(const std::function<Json(const std::string& driveFolder)>& work);

}  // namespace simulator
