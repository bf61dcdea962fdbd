#include "platform/machine/fault_log.h"

namespace platform {

// Kept first, told then: an observer may end the process.
void FaultLog::Add(const std::string& fault) {
  {
    const std::scoped_lock lock(lock_);
    faults_.push_back(fault);
  }
  Tell(fault);
}

std::vector<std::string> FaultLog::All() const {
  const std::scoped_lock lock(lock_);
  return faults_;
}

std::size_t FaultLog::Expect(const std::string& words) {
  const std::scoped_lock lock(lock_);
  return std::erase_if(
      faults_, [&](const std::string& fault) { return fault.find(words) != std::string::npos; });
}

}  // namespace platform
