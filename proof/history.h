// What happened in one life of the service, as everybody but the service saw it: the devices, the
// user, the battery, the notifications. The judges read it when the life is over.
//
// Written on whichever thread it happens, in the order in which it does. Of the platform calls it
// knows only those that were made to fail and those that were held up.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "common/types.h"
#include "platform/machine/call_gate.h"
#include "platform/machine/notifications.h"
#include "platform/machine/transfer_log.h"

namespace platform {
class Machine;
}
namespace simulator {}

namespace proof {

// The proof speaks of tablets and keyboards in every line.
using namespace simulator;

enum class Happening : u8 {
  Transfer,      // one ended
  Word,          // the user was told text
  CallFailed,    // call was made to fail
  BatteryRead,   // the service got value as the charge, in percent
  Reported,      // the service reported the state value
  Announced,     // an interface came (value 1) or left (0); path
  NoticeBegins,  // the service is called back: an interface came (value 1) or left (0)
  NoticeEnds,    // that callback has returned
  UserCame,
  UserLeft,
  StopSent,
  MemoryRefused,
  OpenRefused,  // from here on the keyboard's DFU device refuses to be opened
  Ended,        // the service's process is no more
};

// Which keyboard: the one of the plan, the one that may come in between, or a foreign one.
enum class Unit : u8 { First, Second, Other };
enum class Side : u8 { Hid, Keyboard, Dfu, Other };  // which class of interface

// One record for everything, because judges walk through all kinds together. Each kind uses the
// fields that its line above names.
struct Event {
  Happening what = Happening::Ended;
  u64 timeMs = 0;  // of a transfer: of its end
  u32 threadId = 0;
  u32 value = 0;
  Unit unit = Unit::Other;
  Side side = Side::Other;
  platform::Call call = platform::Call::Count;
  std::string text = {};
  platform::TransferRecord transfer = {};
};

// Any thread adds; the judges' single thread reads when it is closed.
class History {
 public:
  explicit History(platform::Machine& machine) : machine_(machine) {}

  // Begins to watch the machine.
  void Watch();

  // Notes nothing any more: the life is over, and what it holds can be read without a lock.
  void Close();

  // Fills in the time, and the calling thread where the event names none.
  void Add(Event event);

  // For who knows of something that the machine does not tell.
  void Note(Happening what) { Add({.what = what}); }

  // Only once it is closed.
  const std::vector<Event>& events() const { return events_; }

  // While a thread stood still because the plan held it up: nobody can be blamed for these times.
  // Times are virtual milliseconds; the thread runs again at toMs.
  struct Hold {
    u32 threadId;
    u64 fromMs;
    u64 toMs;
  };
  std::size_t holds() const;

  // How much of the time between the two was within holds, of whichever thread.
  u64 HeldMs(u64 fromMs, u64 toMs) const;

 private:
  void AddNotice(const platform::NoticeEvent& notice);
  void AddCallTrouble(const platform::CallTrouble& trouble);

  platform::Machine& machine_;
  std::vector<platform::Observation> watching_;
  mutable std::mutex lock_;
  bool closed_ = false;
  std::vector<Event> events_;
  std::vector<Hold> holds_;
};

// The keyboards' places among the devices, which their paths carry.
inline constexpr char16_t FirstUnit[] = u"7&1a2b3c4d";
inline constexpr char16_t SecondUnit[] = u"8&5e6f7a8b";

Unit UnitOf(const std::u16string& path);
// By the class that an interface is registered under.
Side SideOf(const GUID& classGuid);

// A transfer's event, with its unit and side.
Event TransferEvent(const platform::TransferRecord& record);

}  // namespace proof
