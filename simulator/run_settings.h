// What a run is told: a scenario file's lines, and options of the command line, which mean the same
// and come after them. Beside the scenario's own settings (scenario.h) there are
//
//     installed = VantrelKb_1.1.2.1.dfu   what the keyboard's flash holds
//     in-dfu = yes                        it was left over in DFU mode
//     fault = stall@block7                a trouble (trouble.h), as often as one likes
//     expect = updated                    the reason that the verdict must name
//
// Files are looked for beside the scenario that names them.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "simulator/update_options.h"

namespace simulator {

struct RunSources {
  std::string scenarioFile;  // empty for none

  // The values of each option, by its name without "--". A map stands without quotes, and several
  // are those of the alternate settings in their order.
  std::map<std::string, std::vector<std::string>> options;
};

// Makes a run of them. What nobody told is as for the simulated keyboard: one with older firmware,
// and memory wherever the package writes. False: refusal says why, in one sentence for people.
bool ReadRun(const RunSources& sources, UpdateRunOptions& run, PackageRefusal& refusal);

// The keyboard alone, for a package of another kind; the map may be missing.
bool ReadKeyboard(const RunSources& sources, KeyboardOptions& keyboard, std::string& mapText,
                  PackageRefusal& refusal);

}  // namespace simulator
