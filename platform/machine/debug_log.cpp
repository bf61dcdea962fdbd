#include "platform/machine/debug_log.h"

#include <utility>

namespace platform {

std::vector<DebugLine> DebugLog::Lines() const {
  const std::scoped_lock lock(lock_);
  return lines_;
}

void DebugLog::Clear() {
  const std::scoped_lock lock(lock_);
  lines_.clear();
}

void DebugLog::Observe(std::function<void(const DebugLine&)> observer) {
  const std::scoped_lock lock(lock_);
  observer_ = std::move(observer);
}

void DebugLog::Write(std::u16string text) {
  const DebugLine line{scheduler_.NowMs(), std::move(text)};
  std::function<void(const DebugLine&)> observer;
  {
    const std::scoped_lock lock(lock_);
    lines_.push_back(line);
    observer = observer_;
  }
  if (observer) {
    observer(line);
  }
}

}  // namespace platform
