// The objects that threads of the machine wait for. Their state is guarded by the scheduler's lock.
#pragma once

#include <memory>
#include <utility>

#include "platform/machine/handle_table.h"
#include "platform/machine/scheduler.h"

namespace platform {

class EventObject : public KernelObject {
 public:
  EventObject(bool manualReset, bool signalled)
      : signalled_(signalled), manualReset_(manualReset) {}

  void Set() { signalled_ = true; }
  void Reset() { signalled_ = false; }

  bool isWaitable() const override { return true; }
  bool TryTake(SimThread&) override {
    return manualReset_ ? signalled_ : std::exchange(signalled_, false);
  }

 private:
  bool signalled_;
  const bool manualReset_;
};

// Taken again by its owner as often as it likes, released as often.
class MutexObject : public KernelObject {
 public:
  bool isWaitable() const override { return true; }

  bool TryTake(SimThread& waiter) override {
    if (owner_ != nullptr && owner_ != &waiter) {
      return false;
    }
    owner_ = &waiter;
    ++depth_;
    return true;
  }

  // False when the thread does not own it.
  bool Release(const SimThread& thread) {
    if (owner_ != &thread) {
      return false;
    }
    if (--depth_ == 0) {
      owner_ = nullptr;
    }
    return true;
  }

  bool isOwned() const { return owner_ != nullptr; }

 private:
  SimThread* owner_ = nullptr;
  int depth_ = 0;
};

class ThreadObject : public KernelObject {
 public:
  bool isWaitable() const override { return true; }
  bool TryTake(SimThread&) override { return thread->hasEnded(); }

  std::shared_ptr<SimThread> thread;
};

}  // namespace platform
