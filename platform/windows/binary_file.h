// Opens the firmware package for reading. On Windows a path is what it says, so this is the
// standard library's own open; elsewhere a header of the same name maps the path to the simulated
// machine's drive first.
#pragma once

#include <cstdio>

// Opens the file at the ANSI path for binary reading. Null when it cannot be opened; otherwise the
// caller closes the stream with std::fclose. Any thread.
inline std::FILE* OpenBinaryFile(const char* path) {
  return std::fopen(path, "rb");
}
