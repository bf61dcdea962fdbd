#include "platform/machine/processes.h"

#include <algorithm>
#include <utility>

namespace platform {

void ProcessTable::Add(const Process& process) {
  const std::scoped_lock lock(lock_);
  processes_.push_back(process);
}

void ProcessTable::Remove(DWORD id) {
  const std::scoped_lock lock(lock_);
  std::erase_if(processes_, [&](const Process& process) { return process.id == id; });
}

// A copy, because the process may be gone by the time that it is looked at.
std::optional<Process> ProcessTable::Find(DWORD id) const {
  const std::scoped_lock lock(lock_);
  const auto found = std::find_if(processes_.begin(), processes_.end(),
                                  [&](const Process& process) { return process.id == id; });
  return found == processes_.end() ? std::nullopt : std::optional<Process>(*found);
}

std::vector<DWORD> ProcessTable::Ids() const {
  const std::scoped_lock lock(lock_);
  std::vector<DWORD> ids;
  for (const Process& process : processes_) {
    ids.push_back(process.id);
  }
  return ids;
}

// A started program is not listed: it has ended by the time anybody looks.
DWORD ProcessTable::Launch(const LaunchedProcess& launch) {
  launches.Add(launch);
  const std::scoped_lock lock(lock_);
  return std::exchange(nextLaunchedId_, nextLaunchedId_ + 4);
}

}  // namespace platform
