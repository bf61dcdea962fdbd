// Why a run ended as it did, in one line: from the keyboard's flash, the wire and the gates of the
// service's own decision.
#pragma once

#include <mutex>
#include <string>

#include "platform/machine/transfer_log.h"
#include "simulator/number_text.h"
#include "simulator/update_account.h"
#include "simulator/update_options.h"
#include "simulator/virtual_keyboard.h"
#include "simulator/wire_reader.h"

namespace simulator {

// What came of a run. Only a keyboard that runs the package's firmware, its flash equal to the
// package, is "updated"; reason tells in one line what else happened.
struct UpdateResult {
  int exitCode = 0;  // see exit_codes.h
  std::string reason;

  // Virtual milliseconds from the first transfer to the keyboard's return.
  u64 updateMs = 0;

  // From the start of the service to the keyboard's return.
  AccountFigures account = {};
};

// Watches the wire for the first error that the device reports. Any thread.
// The service may have repaired it, by clearing the error and sending the block again; so it counts
// only for a run that has failed.
class DeviceErrors {
 public:
  void Note(const platform::TransferRecord& record);

  // For instance "errWRITE at 0x08009C40"; empty when there was none.
  std::string Text() const;

 private:
  mutable std::mutex lock_;  // guards the rest
  WireReader reader_;
  u32 address_ = 0;  // what the last request was for
  std::string first_;
};

// What is known when nothing more is to come.
struct UpdateEnd {
  bool faultless = true;  // of the machine, see platform::FaultLog
  bool updated = false;   // runs the package's firmware, its flash equal to the package
  u32 completesTold = 0;
  u32 reportsTaken = 0;  // so often the keyboard was asked into DFU mode
  std::string deviceError;
  KeyboardMode mode = KeyboardMode::Normal;
  bool serviceEnded = false;  // before it was asked to stop
};

UpdateResult JudgeUpdate(const UpdateRunOptions& options, const UpdateEnd& end);

// Which gate of the service's decision is closed for the keyboard and the package, with the values
// of both sides; empty when all are open.
std::string ClosedGateText(const KeyboardVersion& keyboard, const KeyboardVersion& package,
                           u8 batteryPercent);

}  // namespace simulator
