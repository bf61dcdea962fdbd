// One trial: an update to which things happen, and the question whether the keyboard comes out of
// it with the new firmware.
//
// A trial is one to four lives of the service, each in a host process of its own; the keyboard,
// its flash and the mode it is in go from one to the next. In the first life the plan's troubles
// happen. Then the troubles end, the keyboard is plugged in anew, and it must be updated; where
// that life cannot do it, a new start of the service must. A second keyboard that came in between
// must be updated after it. The judge watches throughout.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulator/foreign_keyboard.h"
#include "simulator/package.h"
#include "simulator/tablet.h"
#include "simulator/virtual_keyboard.h"

namespace simulator {

// How the next notices are delivered; all of them in order when nothing is set. The script and the
// threads that announce use it.
struct Deliveries {
  std::atomic<u32> drop = 0;     // so many arrivals are never told
  std::atomic<u32> twice = 0;    // so many are delivered twice
  std::atomic<u32> delayMs = 0;  // all are late by so much
};

// What the plan's events act on. Lives as long as its host process.
struct Stage {
  Tablet& tablet;
  VirtualKeyboard& keyboard;
  VirtualKeyboard& second;  // of the same kind, not plugged in
  ForeignKeyboard& foreign;
  Deliveries& deliveries;
  std::atomic<bool> secondCame = false;

  platform::Machine& machine() { return tablet.machine(); }

  void AttachSecond() {
    secondCame = true;
    second.AttachInDfuMode();
  }
};

struct TrialEvent {
  u64 timeMs = 0;
  std::string name;  // for the trace and the counts
  std::function<void(Stage&)> happen;
};

// The platform call with that number in the life fails.
struct CallFault {
  u64 number = 0;
  u32 errorIndex = 0;
  bool fromThenOn = false;
};

// The keyboard is pulled in front of the transfer with that number, and is back after so long.
struct Pull {
  u64 transfer = 0;
  u64 awayMs = 0;
};

struct TrialPlan {
  std::string name;  // how a person refers to it, for instance "seed 17"
  KeyboardOptions keyboard;
  Package package;
  platform::SchedulerOptions scheduler;
  u8 batteryPercent = 80;
  bool userLoggedOn = true;

  // When the keyboard is plugged in first.
  u64 attachMs = 0;

  std::vector<TrialEvent> events;  // in the order of their times
  std::optional<CallFault> callFault;
  std::optional<Pull> pull;

  // In front of that transfer the keyboard in DFU mode is announced once more.
  std::optional<u64> announceAtTransfer;

  // The second keyboard is there as a DFU device in front of that transfer, or when an event
  // attaches it; it leaves when the troubles end.
  std::optional<u64> attachSecondAtTransfer;

  // Whether the second keyboard's DFU device comes first in the lists.
  bool secondIsListedFirst = false;

  std::optional<u64> killAtCall;

  // The request for memory with that number is refused (see product_memory.h).
  std::optional<u64> refuseMemory;

  // When the troubles end.
  u64 quietAtMs = 60'000;

  // False: the package is not for this keyboard, which must be left as it is.
  bool expectsUpdate = true;

  bool trace = false;  // write the first life's timeline to standard error
};

struct TrialReport {
  std::vector<std::string> violations;  // of the promise; empty for a good trial
  bool updated = false;
  u32 lives = 0;
  u64 virtualMs = 0;
  u64 platformCalls = 0;  // of the first life

  // What there was of each up to the end of the troubles.
  u64 troubledCalls = 0;
  u64 troubledTransfers = 0;
  u64 troubledMemoryRequests = 0;

  // The number of the last transfer of the first life that carried firmware.
  u64 lastBlockTransfer = 0;

  std::map<std::string, u64> troubles;  // what happened, by kind
  std::map<std::string, u64> words;     // told to the user
};

// Runs a trial. driveFolder is a host folder that this trial alone uses.
TrialReport RunTrial(const TrialPlan& plan, const std::string& driveFolder);

}  // namespace simulator
