// What can be written behind vantrel-sim, and what was.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "simulator/pack.h"
#include "simulator/run_settings.h"

namespace simulator {

struct Arguments {
  RunSources sources;
  std::vector<std::string> packages;
  bool realtime = false;
  std::string trace;
  std::string report;
  bool strict = false;
  std::vector<std::string> keyboardIds;
  bool json = false;
  std::string vendorId = "1209";
  std::string productId = "0001";
  std::string deviceVersion = "0000";
  u32 alternateSetting = 0;
  PackOptions pack;
};

// The commands; without any of them it is update.
struct Commands {
  const CLI::App* decide;
  const CLI::App* check;
  const CLI::App* pack;
};

// Tells the parser of all commands and options. The arguments must outlive it.
Commands DescribeCommands(CLI::App& app, Arguments& arguments);

// Four hexadecimal digits, which the parser has looked at.
u16 IdNumber(const std::string& digits);

}  // namespace simulator
