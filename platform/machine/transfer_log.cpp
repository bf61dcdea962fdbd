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
