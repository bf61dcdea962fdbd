#include "proof/excuses.h"

#include <algorithm>

namespace proof {

namespace {

using platform::Call;

// The calls of the search for the user and of the notifier's launch.
bool IsOfLaunch(Call call) {
  static constexpr Call Calls[] = {Call::RegOpenKeyExW,         Call::RegQueryInfoKeyW,
                                   Call::RegEnumKeyExW,         Call::RegGetValueW,
                                   Call::K32EnumProcesses,      Call::K32EnumProcessModules,
                                   Call::K32GetModuleBaseNameW, Call::OpenProcess,
                                   Call::ProcessIdToSessionId,  Call::OpenProcessToken,
                                   Call::LookupPrivilegeValueW, Call::AdjustTokenPrivileges,
                                   Call::DuplicateTokenEx,      Call::CreateEnvironmentBlock,
                                   Call::CreateProcessAsUserW,  Call::MultiByteToWideChar,
                                   Call::WideCharToMultiByte,   Call::HeapAlloc};
  return std::find(std::begin(Calls), std::end(Calls), call) != std::end(Calls);
}

}  // namespace

// Holds behind that time count whole, since one of them may hold up the thread that tells.
u64 ToldByMs(const History& history, u64 timeMs) {
  return timeMs + TellingMs + history.HeldMs(timeMs, ~u64{0});
}

// The history is in the order of time.
std::size_t LastUntil(const std::vector<Event>& events, u64 timeMs) {
  const auto behind =
      std::upper_bound(events.begin(), events.end(), timeMs,
                       [](u64 limitMs, const Event& event) { return limitMs < event.timeMs; });
  return behind == events.begin() ? 0 : static_cast<std::size_t>(behind - events.begin()) - 1;
}

// Looked up so often that it is worked out once.
Excuses::Excuses(const std::vector<Event>& events) : events_(events) {
  bool there = false;
  for (const Event& event : events) {
    there = event.what == Happening::UserCame || (there && event.what != Happening::UserLeft);
    userThere_.push_back(there);
  }
}

bool Excuses::NobodyThere(std::size_t from, std::size_t to) const {
  for (std::size_t i = from; i <= to && i < events_.size(); ++i) {
    if (!userThere_[i]) {
      return true;
    }
  }
  return false;
}

// The launch logs its failures and goes on without a word to the user. That is its right.
bool Excuses::LaunchFailed(std::size_t from, std::size_t to, u32 threadId) const {
  for (std::size_t i = from; i <= to && i < events_.size(); ++i) {
    const Event& event = events_[i];
    if (event.what == Happening::CallFailed && IsOfLaunch(event.call) &&
        (threadId == 0 || event.threadId == threadId)) {
      return true;
    }
  }
  return false;
}

// A window that reaches beyond the last event was cut off by the end of the life.
bool Excuses::ForNoWord(std::size_t from, std::size_t to, u32 threadId) const {
  return PackageFolderMissed() || NobodyThere(from, to) || LaunchFailed(from, to, threadId) ||
         Any(Happening::MemoryRefused, from, to) || Any(Happening::Ended, 0, to) ||
         to >= events_.size();
}

bool Excuses::SomethingFailed(std::size_t from, std::size_t to, u32 threadId) const {
  for (std::size_t i = from; i <= to && i < events_.size(); ++i) {
    const Event& event = events_[i];
    if (event.what == Happening::MemoryRefused ||
        (event.what == Happening::CallFailed && event.threadId == threadId)) {
      return true;
    }
  }
  return false;
}

bool Excuses::Any(Happening what, std::size_t from, std::size_t to) const {
  for (std::size_t i = from; i <= to && i < events_.size(); ++i) {
    if (events_[i].what == what) {
      return true;
    }
  }
  return false;
}

std::size_t Excuses::First(Happening what) const {
  const auto is = [what](const Event& event) { return event.what == what; };
  return static_cast<std::size_t>(std::find_if(events_.begin(), events_.end(), is) -
                                  events_.begin());
}

// The search comes before anything is said to a device.
bool Excuses::PackageFolderMissed() const {
  for (const Event& event : events_) {
    if (event.what == Happening::Transfer) {
      return false;
    }
    if (event.what == Happening::CallFailed && event.call == Call::FindFirstFileA) {
      return true;
    }
  }
  return false;
}

bool Excuses::CallEverFailed(platform::Call call) const {
  return std::any_of(events_.begin(), events_.end(), [call](const Event& event) {
    return event.what == Happening::CallFailed && event.call == call;
  });
}

}  // namespace proof
