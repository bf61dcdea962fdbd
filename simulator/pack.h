// vantrel-sim pack: makes a firmware package from raw binaries and Intel HEX files.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulator/dfuse_file.h"

namespace simulator {

// What the command line says. The output's name is where the service reads the version. Without
// firmware any name that raises no warning will do; with it the name must tell just that version.
struct PackOptions {
  std::string output;
  std::vector<std::string> parts;  // ADDRESS:FILE of a binary, or FILE.hex
  std::string firmware;            // the version that the output's name must carry; may be empty
  bool sample = false;             // the default package instead of parts
  DfuSeTarget target;              // without elements

  // For the DFU suffix, by which the host can see what device a file is for.
  u16 vendorId = 0;
  u16 productId = 0;
  u16 deviceVersion = 0;
};

// What came of it; reason says why there is no package, and is empty when there is one. bytes is
// the size of the file, and means something on success alone.
struct PackResult {
  int exitCode = 0;
  std::string reason;
  u64 bytes = 0;
};

// Writes the package beside its place and renames it, so that there is a whole file or none. A file
// that was there before is replaced on success and else stays. Before the rename the package is
// read back under its own name. Parts are put in the order of their addresses; parts that overlap
// or run past 4 GiB are refused.
PackResult Pack(const PackOptions& options);

// Reads the elements of an Intel HEX file's text, in the order of their addresses: bytes that
// follow one another make one element. Empty when the text is none, or gives a byte twice; reason
// then tells the line. Both ways to tell the upper part of an address are read; where the program
// starts is skipped. What follows the record that ends the file is not looked at.
std::optional<std::vector<DfuSeElement>> ReadIntelHex(const std::string& text, std::string& reason);

}  // namespace simulator
