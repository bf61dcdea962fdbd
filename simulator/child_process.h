// Work that needs a process of its own: one simulated machine lives in it and dies with it.
#pragma once

#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

namespace simulator {

// What a command has to tell, in the order in which it is printed.
using Json = nlohmann::ordered_json;

// Runs the work in a child process and returns what it answered. It is given a folder for a
// tablet's drive, which is gone afterwards whatever became of the child. An interrupted process
// ends its child, deletes the folder and dies of the signal.
//
// Throws when there is no folder to be had, when the work threw, or when the child ended without an
// answer. Called by a process with one thread.
Json RunInChild(const std::function<Json(const std::string& driveFolder)>& work);

// The service writes to standard output on its own account. Returns a stream to the console's own
// output (or error output), and lets standard output go nowhere unless the service's lines are to
// be kept. To be called once, by the process that runs the service.
std::FILE* SplitConsole(bool toErrors, bool keepServiceOutput);

}  // namespace simulator
