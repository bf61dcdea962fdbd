// What troubles act on: the tablet, its keyboards, and how notices are delivered.
#pragma once

#include <atomic>
#include <functional>

#include "common/types.h"

namespace platform {
class Machine;
}

namespace simulator {

class ForeignKeyboard;
class Tablet;
class VirtualKeyboard;

// A charge that is enough for an update.
inline constexpr u8 FullEnoughPercent = 80;

// How the next notices are delivered; all of them in order when nothing is set. The script and the
// threads that announce use it.
struct Deliveries {
  std::atomic<u32> drop = 0;     // arrivals that will never be told
  std::atomic<u32> twice = 0;    // notices to be delivered twice
  std::atomic<u32> delayMs = 0;  // by which all are late

  // Notices to come on threads of their own, each late by a time of its own: the first ones are the
  // latest, so they arrive in reverse order.
  std::atomic<u32> apart = 0;
};

// What the hand behind a trouble does and the machine does not tell.
// A judge needs them: what the service owes depends on who was logged on and whether it was told to
// stop.
enum class StageEvent : u8 { UserCame, UserLeft, StopSent, OpenRefused, Ended };

// What troubles act on. Lives as long as its host process. Its verbs tell what the machine by
// itself would not. Any thread may use them.
struct Stage {
  Tablet& tablet;
  VirtualKeyboard& keyboard;
  VirtualKeyboard& second;  // of the same kind, not plugged in
  ForeignKeyboard& foreign;
  Deliveries& deliveries;

  // Told of each event, on the thread on which it happens.
  std::function<void(StageEvent)> note;

  // Makes the service's request for memory with that number fail; 0: none.
  void (*refuseMemory)(u64 number) = nullptr;

  // Set by the hand, read by the script on another thread.
  std::atomic<bool> secondCame = false;
  std::atomic<bool> killed = false;  // a trouble ended the service's process

  platform::Machine& machine() const;

  // Takes the user's session and shell away, and gives them back. While they are gone the service
  // finds nobody to tell.
  void LogOffUser();
  void LogOnUser();

  // Sends the stop control, as "net stop" does.
  void StopService();

  // The keyboard's DFU device, from when it is attached next. Another program has it open.
  void RefuseOpens();

  // A keyboard of the same kind, already in DFU mode, as one that was left so and is plugged in
  // now.
  void AttachSecond();
};

}  // namespace simulator
