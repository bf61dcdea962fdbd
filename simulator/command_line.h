// What can be written behind vantrel-sim, and what was.
//
// Little more than the shape of a word is looked at here. What an option of a run means is decided
// where a scenario's lines are read, so that a mistake gets the same message in both places.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "simulator/pack.h"
#include "simulator/run_settings.h"

namespace simulator {

// The words of one command line, as they were written. The parser fills it in.
struct Arguments {
  // Of update, decide and check: the scenario file, and the options that mean the same.
  RunSources sources;

  // Paths on the host. check looks at all of them, a run takes one.
  std::vector<std::string> packages;
  bool realtime = false;

  // Which traces are wanted, separated by commas; empty for none.
  std::string trace;

  // The page that shows the run; empty for none.
  std::string report;
  bool strict = false;

  // Each as "VID_hhhh&PID_hhhh". They take the place of this build's ids.
  std::vector<std::string> keyboardIds;
  bool json = false;

  // Of pack: what goes into the suffix of the file, as four hexadecimal digits each. Windows and
  // USB tools show ids without "0x", and so they are written here.
  std::string vendorId = "1209";
  std::string productId = "0001";
  std::string deviceVersion = "0000";
  u32 alternateSetting = 0;
  PackOptions pack;
};

// The commands; without any of them it is update. They belong to the parser, which can say after
// the parse whether one was asked for.
struct Commands {
  const CLI::App* decide;
  const CLI::App* check;
  const CLI::App* pack;
};

// Tells the parser of all commands and options. It keeps references to the fields of the arguments
// and writes to them while it parses, so the arguments must outlive it.
Commands DescribeCommands(CLI::App& app, Arguments& arguments);

// The number that four hexadecimal digits stand for. The parser has refused all other texts.
u16 IdNumber(const std::string& digits);

}  // namespace simulator
