#include "platform/machine/transfer_log.h"

#include <utility>

namespace platform {

void TransferLog::AtTransfer(std::uint64_t number, std::function<void()> action) {
  const std::scoped_lock lock(lock_);
  actions_.emplace(number, std::move(action));
}

std::uint64_t TransferLog::total() const {
  const std::scoped_lock lock(lock_);
  return total_;
}

// The actions run without the lock, since one may pull the device and cause transfers of its own.
// The number is taken before that: what an action causes comes behind.
void TransferLog::Begin(TransferRecord& record) {
  std::vector<std::function<void()>> actions;
  {
    const std::scoped_lock lock(lock_);
    record.number = ++total_;
    for (auto [at, end] = actions_.equal_range(record.number); at != end; ++at) {
      actions.push_back(at->second);
    }
  }
  for (const std::function<void()>& action : actions) {
    action();
  }
}

}  // namespace platform
