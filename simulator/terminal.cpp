#include "simulator/terminal.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdlib>

namespace simulator {

// A log file that is full of bars helps nobody.
Terminal TerminalAt(std::FILE* stream) {
  const char* const kind = std::getenv("TERM");
  const char* const noColour = std::getenv("NO_COLOR");
  Terminal terminal;
  terminal.canRewrite = isatty(fileno(stream)) == 1 && kind != nullptr && *kind != '\0' &&
                        std::string(kind) != "dumb";
  terminal.hasColours = terminal.canRewrite && (noColour == nullptr || *noColour == '\0');
  return terminal;
}

std::string ProgressText(const std::string& phase, u64 bytesDone, u64 bytesInAll, u64 nowMs,
                         bool hasColours) {
  constexpr std::size_t BarChars = 20;
  constexpr u64 KiB = 1024;
  // What is written again, after a failure, is no progress.
  const u64 done = std::min(bytesDone, bytesInAll);
  const u64 percent = bytesInAll == 0 ? 100 : done * 100 / bytesInAll;
  const std::size_t filled = percent * BarChars / 100;
  const std::string bar = std::string(filled, '#') + std::string(BarChars - filled, '.');
  char text[160];
  std::snprintf(
      text, sizeof(text),
      "%-21s [%s%s%s] %3" PRIu64 " %%  %" PRIu64 "/%" PRIu64 " KiB  %" PRIu64 ".%" PRIu64 " s",
      phase.c_str(), hasColours ? "\033[32m" : "", bar.c_str(), hasColours ? "\033[0m" : "",
      percent, done / KiB, bytesInAll / KiB, nowMs / 1000, nowMs % 1000 / 100);
  return text;
}

}  // namespace simulator
