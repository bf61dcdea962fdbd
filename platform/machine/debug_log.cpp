#include "platform/machine/debug_log.h"

#include <algorithm>

#include "platform/machine/text.h"

namespace platform {

std::vector<DebugLine> DebugLog::Lines() const {
  const std::scoped_lock lock(lock_);
  return lines_;
}

std::string DebugLog::Text() const {
  const std::scoped_lock lock(lock_);
  std::string text;
  for (const DebugLine& line : lines_) {
    text += Utf8FromWide(line.text);
  }
  return text;
}

std::size_t DebugLog::CountOf(std::u16string_view text) const {
  const std::scoped_lock lock(lock_);
  return static_cast<std::size_t>(std::count_if(
      lines_.begin(), lines_.end(), [&](const DebugLine& line) { return line.text == text; }));
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
