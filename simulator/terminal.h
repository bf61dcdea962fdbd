// What the terminal at the other end of a stream can show.
#pragma once

#include <cstdio>
#include <string>

#include "common/types.h"

namespace simulator {

// Whether a line can be written over again, and whether it may have colours: no stream that goes
// into a file or a pipe, nor a terminal that calls itself dumb, can the first; NO_COLOR in the
// environment forbids the second.
struct Terminal {
  bool canRewrite = false;
  bool hasColours = false;
};
Terminal TerminalAt(std::FILE* stream);

// How far an update is, in less than 80 columns: phase, bar, percent, KiB and virtual time.
std::string ProgressText(const std::string& phase, u64 bytesDone, u64 bytesInAll, u64 nowMs,
                         bool hasColours);

}  // namespace simulator
