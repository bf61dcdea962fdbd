// The objects that threads of the machine wait for. Their state is guarded by the scheduler's lock.
#pragma once

#include <memory>
#include <utility>

#include "platform/machine/handle_table.h"
#include "platform/machine/scheduler.h"

namespace platform {

// A manual-reset event stays signalled until it is reset, and lets all go; the other kind lets one
// go and is reset by that.
class EventObject : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::Event;

  EventObject(bool manualReset, bool signalled)
      : signalled_(signalled), manualReset_(manualReset) {}

  // Both only within Scheduler::Update, which lets the waiting go. An event does not count: setting
  // one that is signalled changes nothing.
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

// Taken again by its owner as often as it likes, released as often. Whoever takes it after an owner
// that ended without releasing it is told so. Unlike a critical section it has an owner that other
// threads can see end.
class MutexObject : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::Mutex;

  bool isWaitable() const override { return true; }

  // The owner ended without a release: the mutex is free, and the next one to take it is told that
  // what it guards may be half changed (WAIT_ABANDONED).
  bool TryTake(SimThread& waiter) override {
    wasAbandoned_ = owner_ != nullptr && owner_->hasEnded();
    if (wasAbandoned_) {
      owner_ = nullptr;
      depth_ = 0;
    }
    if (owner_ != nullptr && owner_.get() != &waiter) {
      return false;
    }
    owner_ = waiter.shared_from_this();
    ++depth_;
    return true;
  }

  bool wasAbandoned() const override { return wasAbandoned_; }

  // False when the thread does not own it. The last of as many releases as it was taken gives it
  // free.
  bool Release(const SimThread& thread) {
    if (owner_.get() != &thread) {
      return false;
    }
    if (--depth_ == 0) {
      owner_ = nullptr;
    }
    return true;
  }

 private:
  // Null while nobody owns it. Kept alive, so that its end can be seen after the thread has gone.
  std::shared_ptr<SimThread> owner_;
  int depth_ = 0;
  bool wasAbandoned_ = false;
};

// Signalled for good once the thread has ended. The handle does not keep the thread running, nor
// does closing it end the thread.
class ThreadObject : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::Thread;

  bool isWaitable() const override { return true; }
  bool TryTake(SimThread&) override { return thread->hasEnded(); }

  // Whoever makes the object sets it before the handle is given out, and nobody changes it then.
  std::shared_ptr<SimThread> thread;
};

}  // namespace platform
