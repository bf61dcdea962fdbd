#include "simulator/stopwatch.h"

#include <algorithm>

#include "simulator/timeline.h"

namespace simulator {

void Stopwatch::Note(const platform::TransferRecord& record) {
  const std::scoped_lock lock(lock_);
  firstTransferMs_ = firstTransferMs_ == 0 ? record.startMs : firstTransferMs_;
  lastTransferMs_ = record.endMs;
  wireMs_ += record.endMs - record.startMs;
}

u64 Stopwatch::firstTransferMs() const {
  const std::scoped_lock lock(lock_);
  return firstTransferMs_;
}

void Stopwatch::Write(const BootloaderCounts& counts, u64 returnedMs, std::FILE* stream) const {
  const std::scoped_lock lock(lock_);
  if (firstTransferMs_ == 0) {
    return;
  }
  const auto write = [&](const char* what, u64 milliseconds) {
    std::fprintf(stream, "    %12s  %s\n", SecondsText(milliseconds).c_str(), what);
  };
  const u64 transfersMs = lastTransferMs_ - firstTransferMs_;
  const u64 knownMs = counts.eraseMs + counts.writeMs + wireMs_;
  std::fprintf(stream, "  where the time went\n");
  write("until the service first spoke to the keyboard", firstTransferMs_);
  write("keyboard erasing", counts.eraseMs);
  write("keyboard writing", counts.writeMs);
  write("transfers on the wire", wireMs_);
  write("restart into DFU mode and ticks between operations",
        transfersMs - std::min(transfersMs, knownMs));
  if (returnedMs != 0) {
    // The service may have spoken to it once more before the run looked.
    write("restart with the new firmware", returnedMs - std::min(returnedMs, lastTransferMs_));
  }
}

}  // namespace simulator
