// vantrel-sim check FILE.dfu: whether the service would take a firmware package, and what is in it.
#pragma once

#include <cstdio>
#include <string>

namespace simulator {

// Prints to out what the package holds, or to complaints the sentence why the service would refuse
// it. Returns the process's exit code, 0 or 1.
int CheckPackage(const std::string& path, std::FILE* out, std::FILE* complaints);

}  // namespace simulator
