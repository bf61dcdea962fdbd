#include "proof/progress_line.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>

namespace proof {

ProgressLine::ProgressLine(std::FILE* stream, u64 runs)
    : stream_(stream), runs_(runs), isTerminal_(isatty(fileno(stream)) != 0) {}

// Five times a second is what an eye can follow; a terminal is slow when it is written to more
// often. The line overwrites itself, and clears what a longer one left.
void ProgressLine::Show(u64 done, u64 failed) {
  const Clock::time_point now = Clock::now();
  if (!isTerminal_ || now - lastShown_ < std::chrono::milliseconds(200)) {
    return;
  }
  lastShown_ = now;
  const double seconds = std::max(0.001, std::chrono::duration<double>(now - start_).count());
  std::fprintf(stream_,
               "\r%" PRIu64 " of %" PRIu64 " runs, %" PRIu64 " failed, %.0f per second\033[K", done,
               runs_, failed, static_cast<double>(done) / seconds);
  std::fflush(stream_);
}

// Before a line that is to stay, and at the end.
void ProgressLine::Clear() {
  if (isTerminal_) {
    std::fputs("\r\033[K", stream_);
    lastShown_ = {};
  }
}

}  // namespace proof
