// An operation's side of the talk with its device: which request is due, and what the answer means.
// What is on the wire is held against it, one request after the other.
#pragma once

#include <string>
#include <vector>

#include "proof/history.h"
#include "simulator/wire_requests.h"

namespace proof {

// One operation as its thread's transfers show it. Indexes count the events of the whole history,
// times are virtual milliseconds. Where an index is named it says which event showed it.
struct Operation {
  enum class Kind { Erase, Download, Leave };
  enum class End {
    Succeeded,  // its work is done; of a leave: the request is out
    Failed,
    Unfinished,  // another request was due
  };

  Kind kind = Kind::Erase;
  End end = End::Unfinished;
  bool kindIsSure = false;  // an erase and a download begin alike
  u32 threadId = 0;
  Unit unit = Unit::Other;
  std::size_t first = 0;  // events of the history
  std::size_t last = 0;
  std::size_t decided = 0;  // the event from which on its end was to be seen: before a last ABORT
  u64 startMs = 0;
  u64 endMs = 0;              // of its last transfer
  u64 dueMs = 0;              // when the device may be spoken to again
  bool lacksRequest = false;  // a leave that sent nothing because its image has no element
};

// How often a block is sent and a bad status is borne.
inline constexpr u32 Attempts = 3;

// A request that is due: the fields of the set-up packet, and what goes to the device with it.
struct Request {
  u8 type;
  u8 request;
  u16 value = 0;
  u16 length = 0;
  platform::Bytes data = {};
};

// Thrown where the operation's events end, and where one is not the one that was due.
struct NoMore {};
struct Unexpected {};

// It reads the history behind it and changes nothing there. One object serves one operation; the
// replay of the three kinds is built on it.
class Conversation {
 public:
  // ofThread: the events of the operation's thread, of which there is one at least. A fault is told
  // in a sentence, and then the conversation is over.
  Conversation(const std::vector<Event>& events, const std::vector<std::size_t>& ofThread,
               std::vector<std::string>& faults);

 protected:
  const Event* Next() const { return at_ < ofThread_.size() ? &events_[ofThread_[at_]] : nullptr; }
  // For an event that is no request, such as a call that failed before the wire.
  void PassOver() { ++at_; }
  // Throws Unexpected.
  [[noreturn]] void Fault(const Event& at, const std::string& what);

  // Takes the next event for the answer to that request. False when the request was not answered.
  bool Ask(const Request& wanted);

  // The three requests that every operation uses. Status and State keep what the device answered;
  // after a failure the last answer stands.
  bool Status();
  bool State();
  bool Clear() { return Ask({HostToInterface, DfuClrStatus}); }

  // The last request of an operation that has failed. That it has was to be seen before.
  void Abort();

  // The device asked to be left alone for that long after its last answer.
  void Wait(u64 milliseconds) { operation_.dueMs = operation_.endMs + milliseconds; }

  // One block or command, tried up to three times.
  bool Send(u16 block, const platform::Bytes& data);

  // False when the device could not be brought there, which ends the operation.
  bool ResetToIdle();

  const std::vector<Event>& events_;
  const std::vector<std::size_t>& ofThread_;
  Operation operation_;
  u8 status_ = 0;
  u8 state_ = 0xFF;
  u32 pollMs_ = 0;
  std::size_t failedAt_ = 0;  // before the ABORT; 0: not failed

 private:
  enum class Try { Accepted, Again, Refused, Broken };

  void Compare(const Request& wanted, const Event& found);
  bool Download(u16 block, const platform::Bytes& data);
  Try TryToSend(u16 block, const platform::Bytes& data);
  bool LeaveError();
  Try ClearAndTryAgain();

  std::vector<std::string>& faults_;
  std::size_t at_ = 0;
  bool released_ = false;  // the device resets itself: nothing may be sent any more
};

}  // namespace proof
