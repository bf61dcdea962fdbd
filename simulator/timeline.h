// What a run looks like to a person: one line for each thing that happens, with its virtual time.
//
// The lines come from observers, on whichever thread it happens; each is written whole. The
// service's own standard output is not part of it.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "common/types.h"
#include "platform/machine/debug_log.h"
#include "platform/machine/transfer_log.h"
#include "simulator/timeline_options.h"
#include "simulator/wire_reader.h"

namespace platform {
class Machine;
}

namespace simulator {

// A line that was written, for whoever shows it in another way.
struct TimelineLine {
  u64 timeMs;
  std::string speaker;
  std::string text;
};

class Timeline {
 public:
  // Writes to the stream, which the caller keeps open.
  Timeline(platform::Machine& machine, std::FILE* stream, const TimelineOptions& options);

  // Begins to watch the machine. The timeline must outlive the run.
  void WatchMachine();

  // One line of the run's own: who speaks, and what.
  void Write(const char* speaker, const std::string& text);

  // All that was written so far.
  std::vector<TimelineLine> lines() const;

  // A line that stays below the others and is written over by the next one; empty: none. Only on a
  // terminal that can.
  void ShowStatus(const std::string& text);

  // The download's progress as the keyboard sees it; written when the number changes by ten.
  void WriteProgress(u64 bytesDone, u64 bytesInAll);

 private:
  void WriteTransfer(const platform::TransferRecord& record);
  void WriteDebugLine(const platform::DebugLine& line);

  platform::Machine& machine_;
  std::FILE* const stream_;
  const TimelineOptions options_;
  std::vector<platform::Observation> watching_;
  mutable std::mutex lock_;  // guards the rest
  std::vector<TimelineLine> lines_;
  WireReader reader_;
  u64 lastTens_ = 0;
  std::string status_;
};

// "12.345 s".
std::string SecondsText(u64 milliseconds);

// A transfer as one reads it on the wire, for instance "DNLOAD block 2, 1024 bytes".
std::string DescribeTransfer(const platform::TransferRecord& record);

}  // namespace simulator
