#include "platform/machine/transfer_log.h"

#include <utility>

namespace platform {

void TransferLog::Observe(std::function<void(const TransferRecord&)> observer) {
  const std::scoped_lock lock(lock_);
  observer_ = std::move(observer);
}

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

void TransferLog::End(const TransferRecord& record) {
  std::function<void(const TransferRecord&)> observer;
  {
    const std::scoped_lock lock(lock_);
    observer = observer_;
  }
  if (observer) {
    observer(record);
  }
}

}  // namespace platform
