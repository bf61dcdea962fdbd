// Where the time of an update went, and what it cost on the wire.
//
// Each moment belongs to the first of these that holds: a transfer is under way; the device has
// asked for time and its operation has not ended; the keyboard is away; the service waits out a
// delay that it always makes. What is left over is "anything else": nobody sets it, so it shows
// whatever the service does that it need not.
#pragma once

#include <array>
#include <atomic>
#include <cstdio>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/call_gate.h"
#include "platform/machine/transfer_log.h"
#include "platform/machine/wait_record.h"
#include "simulator/json.h"
#include "simulator/virtual_keyboard.h"

namespace platform {
class Machine;
}

namespace simulator {

// Virtual times in milliseconds. The first five are all of the stretch that was asked for.
struct AccountFigures {
  u64 wireMs = 0;
  u64 pollMs = 0;  // of bwPollTimeout as the device told it, as far as the service let it pass
  u64 awayMs = 0;
  u64 delayMs = 0;
  u64 elseMs = 0;
  u64 tickMs = 0;  // the part of delayMs from an operation's end to the look at it

  // These count from the start of the watch, not over the stretch.
  std::map<std::string, u64> transfers;  // by the name of the request
  u64 dataBlocks = 0;
  u64 dataBlockTransfers = 0;  // a block and the status requests up to its end

  // Calls of WinUsb_Initialize, those that failed included.
  u64 deviceOpens = 0;
  u64 platformCalls = 0;
};

// Any thread; the machine tells it of transfers, waits and calls on the thread that makes them. It
// must outlive the run.
class UpdateAccount {
 public:
  // Watches the machine from now on. Before the service starts.
  explicit UpdateAccount(platform::Machine& machine);

  // The keyboard is in this mode from now on. A keyboard that was asked to restart counts as away
  // from the end of that report, even when it leaves later.
  void NoteMode(KeyboardMode mode, u64 nowMs);

  // When the first transfer began and the last one ended; 0 when there was none.
  u64 firstTransferMs() const;
  u64 lastTransferMs() const;

  // The account of a stretch of the run, once it is over. Changes nothing, so several stretches can
  // be asked for. What has not ended by toMs counts up to there.
  AccountFigures Close(u64 fromMs, u64 toMs) const;

 private:
  // What a moment may belong to, the first one first.
  enum Kind { Wire, Poll, Away, Delay, Tick, KindCount };

  // Stretches may overlap. Which of them a moment belongs to is decided by Close.
  struct Stretch {
    Kind kind;
    u64 fromMs;
    u64 toMs;
  };

  // The poll time that a device asked for last, of the operation that a thread runs.
  struct Asked {
    u64 fromMs;
    u64 toMs;
  };

  void NoteTransfer(const platform::TransferRecord& record);
  void CountBlock(const platform::TransferRecord& record);
  void NoteCall(platform::Call call);
  void NoteWait(const platform::WaitRecord& wait);
  void EndPoll(u32 threadId, u64 nowMs);

  platform::Machine& machine_;
  std::vector<platform::Observation> watching_;
  std::atomic<u64> deviceOpens_ = 0;
  std::atomic<u64> platformCalls_ = 0;

  mutable std::mutex lock_;  // guards the rest
  std::vector<Stretch> stretches_;
  std::map<u32, Asked> asked_;  // by thread
  std::vector<u64> operationEnds_;
  std::size_t startUpDelays_ = 0;  // of those that the start-up makes
  std::optional<u64> reportMs_;    // when the keyboard was asked to restart
  u64 awayFromMs_ = 0;
  bool away_ = false;
  bool blockOpen_ = false;
  u64 firstTransferMs_ = 0;
  u64 lastTransferMs_ = 0;
  AccountFigures counts_;
};

// For people, and as it stands in what the commands print for programs.
void WriteAccount(const AccountFigures& figures, std::FILE* stream);
Json DescribeAccount(const AccountFigures& figures);

}  // namespace simulator
