// vantrel-sim pack: makes a firmware package from raw binaries and Intel HEX files.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulator/dfuse_file.h"

namespace simulator {

// What the command line says. The output's name is where the service reads the version.
struct PackOptions {
  std::string output;
  std::vector<std::string> parts;  // ADDRESS:FILE of a binary, or FILE.hex
  std::string firmware;            // the version that the output's name must carry; may be empty
  bool sample = false;             // the default package instead of parts
  DfuSeTarget target;              // without elements
  u16 vendorId = 0;
  u16 productId = 0;
  u16 deviceVersion = 0;
};

// What came of it; reason says why there is no package.
struct PackResult {
  int exitCode = 0;
  std::string reason;
  u64 bytes = 0;
};

// Writes the package beside its place and renames it, so that there is a whole file or none.
PackResult Pack(const PackOptions& options);

// Reads the elements of an Intel HEX file's text, in the order of their addresses: bytes that
// follow one another make one element. Empty when the text is none, or gives a byte twice; reason
// then tells the line.
std::optional<std::vector<DfuSeElement>> ReadIntelHex(const std::string& text, std::string& reason);

}  // namespace simulator
