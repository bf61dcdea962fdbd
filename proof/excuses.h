// What lets a word that was due stay away: nobody who could read it, a call of the notifier's
// launch that failed, or a service that was no more.
#pragma once

#include "platform/machine/device_tree.h"
#include "proof/history.h"

namespace proof {

// Within which the end of an operation has been told: two ticks, for the launch of the next one may
// fail as well, and a refresh in between of which two reads may stay without an answer.
inline constexpr u64 TellingMs = 2 * 3'000 + 2 * u64{platform::ControlTimeoutMs} + 1'000;

// By when what happened at that time has been told; the times of held threads come on top.
u64 ToldByMs(const History& history, u64 timeMs);

// The last event of that time or earlier.
std::size_t LastUntil(const std::vector<Event>& events, u64 timeMs);

// Indexes are events of the history. The object refers to the events that it was made of.
class Excuses {
 public:
  explicit Excuses(const std::vector<Event>& events);

  // Between two events, both included. The thread that would have told counts for failed calls; 0
  // for any.
  bool NobodyThere(std::size_t from, std::size_t to) const;
  bool LaunchFailed(std::size_t from, std::size_t to, u32 threadId) const;

  // Whether a word that was due between them may be missing.
  bool ForNoWord(std::size_t from, std::size_t to, u32 threadId) const;

  // Whether a call of the thread failed, or a request for memory.
  bool SomethingFailed(std::size_t from, std::size_t to, u32 threadId) const;

  // Whether something of the kind happened between two events, both included.
  bool Any(Happening what, std::size_t from, std::size_t to) const;

  // The first event of the kind; the number of events when there is none.
  std::size_t First(Happening what) const;

  // In the whole life: some failures keep on telling long after they happened.
  bool CallEverFailed(platform::Call call) const;

  // Whether the search for the package folder failed at start-up: there is no package then, and no
  // notifier, until the next start.
  bool PackageFolderMissed() const;

 private:
  const std::vector<Event>& events_;
  std::vector<bool> userThere_;  // after each event
};

}  // namespace proof
