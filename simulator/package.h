// Firmware packages as the simulator offers them to the service: made here, or the user's own.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/types.h"
#include "simulator/dfuse_file.h"
#include "simulator/keyboard_image.h"

namespace simulator {

// A firmware package: a file name that carries a version, and a file that the service accepts.
struct Package {
  std::string fileName;
  std::vector<u8> bytes;
  KeyboardVersion version;
  DfuSeFile contents;
};

// 128 KiB of firmware in two elements, made for the simulated keyboard.
Package DefaultPackage(const KeyboardVersion& version);

// Reads the user's own package. Empty when the service would refuse it; reason then says why in one
// sentence.
std::optional<Package> ReadPackage(const std::string& path, std::string& reason);

// The digits of a version as "1.2.3.4"; empty when the text is anything else.
std::optional<KeyboardVersion> ParseVersion(const std::string& text);
std::string VersionText(const KeyboardVersion& version);

}  // namespace simulator
