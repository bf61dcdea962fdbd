// Where the time of an update went, for the lines under the verdict.
#pragma once

#include <cstdio>
#include <mutex>

#include "platform/machine/transfer_log.h"
#include "simulator/dfu_bootloader.h"

namespace simulator {

class Stopwatch {
 public:
  // Any thread.
  void Note(const platform::TransferRecord& record);

  // 0 while there was none.
  u64 firstTransferMs() const;

  // counts: what the keyboard says that its work took. returnedMs: when it was back with the new
  // firmware; 0 when it was not.
  void Write(const BootloaderCounts& counts, u64 returnedMs, std::FILE* stream) const;

 private:
  mutable std::mutex lock_;  // guards the rest
  u64 firstTransferMs_ = 0;
  u64 lastTransferMs_ = 0;
  u64 wireMs_ = 0;
};

}  // namespace simulator
