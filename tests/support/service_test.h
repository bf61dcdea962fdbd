// A tablet whose service is driven piece by piece: its operations are called directly or on threads
// of its process, and the platform calls behind them are watched.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/table.h"
#include "tests/support/tablet_test.h"

using platform::Call;
using simulator::KeyboardOptions;

class ServiceTest : public TabletTest {
 protected:
  using Texts = std::vector<std::string>;
  using Thread = std::shared_ptr<platform::SimThread>;

  // A package that has a version in its name and no firmware in it: a preparation opens it, writes
  // HollowLine and starts nothing.
  void InstallHollowPackage(const std::string& version = "1.2.2.1") {
    tablet.InstallPackage("VantrelKb_" + version + ".dfu", {});
  }
  static constexpr char HollowLine[] =
      "Unable to find data for that device/target from the file ...";

  // Runs the body on a thread of the service's process.
  Thread OnThread(std::function<void()> body) {
    return machine.scheduler.Spawn("test's thread", platform::ThreadOwner::Service, false,
                                   [body = std::move(body)]() -> u32 { return body(), 0; });
  }
  void WaitFor(const Thread& thread) {
    PassTimeUntil("the thread has ended", [&] { return thread->hasEnded(); });
  }

  // Notes each use of these calls from now on.
  void Watch(std::set<Call> calls, bool withTimes = false) {
    seen_.clear();
    watching_ = machine.gate.Observe([this, calls = std::move(calls), withTimes](Call call) {
      if (calls.contains(call)) {
        const std::string time = withTimes ? " at " + std::to_string(nowMs()) : "";
        const std::scoped_lock lock(seenLock_);
        seen_.push_back(platform::NameOf(call) + time);
      }
    });
  }
  Texts Seen() const {
    const std::scoped_lock lock(seenLock_);
    return seen_;
  }

  u64 TimesCalled(Call call) const { return machine.gate.CountOf(call); }

  // Does something once, in front of the occurrence-th use of the call from now, on the calling
  // thread.
  void AtCall(Call call, u64 occurrence, std::function<void()> action) {
    const u64 use = TimesCalled(call) + occurrence;
    const auto acted = std::make_shared<std::atomic<bool>>(false);
    acting_ = machine.gate.Observe([=, this, action = std::move(action)](Call entered) {
      if (entered == call && TimesCalled(call) == use && !acted->exchange(true)) {
        action();
      }
    });
  }

  // The words told to the user since the last look.
  Texts NewWords() {
    Texts words = Words();
    words.erase(words.begin(), words.begin() + wordsSeen_);
    wordsSeen_ += static_cast<std::ptrdiff_t>(words.size());
    return words;
  }

 private:
  platform::Observation watching_;
  platform::Observation acting_;
  mutable std::mutex seenLock_;
  Texts seen_;
  std::ptrdiff_t wordsSeen_ = 0;
};
