#include "platform/machine/scheduler.h"

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace platform {

namespace {

// The thread of the machine that this host thread plays. Its owner is the list in the scheduler, or
// who started it.
thread_local SimThread* currentThread = nullptr;

// A run that hands over this often without a millisecond passing does so for ever.
constexpr std::uint64_t MostPassesAtOneTime = 2'000'000;

// Threads of which one runs at a time hand over many times faster on one processor. Those that
// are started from here on inherit it. Where the host does not allow it, a run is merely slower.
void StayOnThisProcessor() {
  const int processor = sched_getcpu();
  if (processor >= 0) {
    cpu_set_t only;
    CPU_ZERO(&only);
    CPU_SET(static_cast<std::size_t>(processor), &only);
    sched_setaffinity(0, sizeof(only), &only);
  }
  // Whoever is told to run waits for the teller's sleep, which comes at once.
  const sched_param priority{};
  sched_setscheduler(0, SCHED_BATCH, &priority);
}

}  // namespace

Scheduler::Scheduler(const SchedulerOptions& options)
    : options_(options), random_(options.seed * 0x9E3779B97F4A7C15ull + 1) {
  onStuck_ = [](const std::string& why) {
    std::fprintf(stderr, "%s\n", why.c_str());
    std::fflush(stderr);
    std::_Exit(3);
  };
  if (options.mode == SchedulerMode::Serial && !options.fibers) {
    StayOnThisProcessor();
  }
}

SimThread* Scheduler::Current() {
  return currentThread;
}

std::uint64_t Scheduler::NowMs() const {
  const Lock lock(lock_);
  return nowMs_;
}

// A run that is judged wants a sentence in its report rather than a dead process.
void Scheduler::OnStuck(std::function<void(const std::string&)> handler) {
  const Lock lock(lock_);
  onStuck_ = std::move(handler);
}

// The calling thread runs already, so it takes the place of the one that runs.
void Scheduler::AttachCurrentThread(const std::string& name, ThreadOwner owner) {
  const Lock lock(lock_);
  auto thread = std::make_shared<SimThread>();
  thread->name_ = name;
  thread->id_ = nextThreadId_++;
  thread->owner_ = owner;
  thread->state_ = SimThread::State::Running;
  ++running_;
  threads_.push_back(thread);
  currentThread = thread.get();
}

// In serial mode nobody is picked now: the caller still runs, and the new thread is found when it
// blocks. In parallel mode there may be room at once.
std::shared_ptr<SimThread> Scheduler::Spawn(const std::string& name, ThreadOwner owner,
                                            bool suspended, std::function<std::uint32_t()> body) {
  auto thread = std::make_shared<SimThread>();
  thread->name_ = name;
  thread->owner_ = owner;
  thread->state_ = suspended ? SimThread::State::Suspended : SimThread::State::Ready;
  thread->body_ = std::move(body);
  {
    const Lock lock(lock_);
    thread->id_ = nextThreadId_++;
    threads_.push_back(thread);
  }

  if (options_.fibers) {
    thread->fiber_.Start([this, thread = thread.get()] { RunThread(*thread); });
  } else {
    // It holds the record: nobody else may be left to when the thread ends.
    std::thread([this, thread] {
      currentThread = thread.get();
      thread->turn_.Await();
      RunThread(*thread);
    }).detach();
  }

  if (!suspended && options_.mode == SchedulerMode::Parallel) {
    Lock lock(lock_);
    HandOver(lock);
  }
  return thread;
}

void Scheduler::RunThread(SimThread& thread) {
  // Jumping skips the destructors in between, as Windows does.
  std::jmp_buf landing;
  thread.exit_ = &landing;
  if (setjmp(landing) == 0) {
    const std::uint32_t exitCode = thread.body_();
    Update([&] { thread.exitCode = exitCode; });
  }
  thread.body_ = nullptr;

  Lock lock(lock_);
  thread.state_ = SimThread::State::Ended;
  --running_;
  const auto at = std::find_if(threads_.begin(), threads_.end(),
                               [&](const auto& each) { return each.get() == &thread; });
  ended_ = std::move(*at);
  threads_.erase(at);
  HandOver(lock);
}

bool Scheduler::Resume(SimThread& thread) {
  Lock lock(lock_);
  if (thread.state_ != SimThread::State::Suspended) {
    return false;
  }
  thread.state_ = SimThread::State::Ready;
  MoveToBack(thread);
  if (options_.mode == SchedulerMode::Parallel) {
    HandOver(lock);
  }
  return true;
}

// Windows ends the thread where it stands. What its frames own stays owned, here as there.
void Scheduler::ExitCurrentThread(std::uint32_t exitCode) {
  Update([&] { currentThread->exitCode = exitCode; });
  std::longjmp(*currentThread->exit_, 1);
}

// Serving the waiting here and not when they are picked makes the order fair: a mutex that is
// released and taken again at once has gone to who waited.
void Scheduler::Update(const std::function<void()>& change) {
  Lock lock(lock_);
  change();
  ServeWaiting();
  if (options_.mode == SchedulerMode::Parallel) {
    HandOver(lock);
  }
}

bool Scheduler::WaitUntil(const std::function<bool()>& tryTake, std::uint64_t deadlineMs) {
  Lock lock(lock_);
  if (tryTake()) {
    return true;
  }
  SimThread& self = *currentThread;
  self.tryTake_ = &tryTake;
  self.deadlineMs_ = std::max(deadlineMs, nowMs_);
  self.timedOut_ = false;
  self.state_ = SimThread::State::Blocked;
  BlockCurrent(lock, self);
  self.tryTake_ = nullptr;
  return !self.timedOut_;
}

// A sleep is a wait for nothing. One that would end beyond the end of time lasts for ever.
void Scheduler::SleepMs(std::uint64_t milliseconds) {
  if (milliseconds == 0) {
    Yield();
    return;
  }
  const std::uint64_t now = NowMs();
  WaitUntil([] { return false; },
            milliseconds > NoDeadline - now ? NoDeadline : now + milliseconds);
}

// Ready again, but with a new place in the order: behind all that are ready now.
void Scheduler::Yield() {
  Lock lock(lock_);
  SimThread& self = *currentThread;
  self.state_ = SimThread::State::Ready;
  BlockCurrent(lock, self);
}

// One call in four hands over: often enough to meet races, seldom enough for a thread to get on. A
// thread of an ended process goes to sleep here and is never picked.
void Scheduler::Checkpoint() {
  Lock lock(lock_);
  SimThread& self = *currentThread;
  const bool ended = serviceEnded_ && self.owner_ == ThreadOwner::Service;
  if (ended || (options_.seed != 0 && NextRandom() % 4 == 0)) {
    self.state_ = SimThread::State::Ready;
    BlockCurrent(lock, self);
  }
}

// Nothing is torn down: as after a kill, the threads stay where they are and none of them runs.
void Scheduler::EndServiceProcess() {
  {
    const Lock lock(lock_);
    serviceEnded_ = true;
  }
  Checkpoint();
}

// Gives up the processor and returns when the calling thread has been picked again.
void Scheduler::BlockCurrent(Lock& lock, SimThread& self) {
  MoveToBack(self);
  --running_;
  HandOver(lock);
  if (!options_.fibers) {
    self.turn_.Await();
  }
}

void Scheduler::HandOver(Lock& lock) {
  Dispatch();
  if (options_.fibers) {
    SwitchToPicked(lock);
  } else {
    TellPicked(lock);
  }
}

// When the lock is free: told before, they would take the processor only to wait for the lock, and
// a hand-over would cost three switches in place of one. The pointers keep their records until all
// are told; whoever knows already may be at its end.
void Scheduler::TellPicked(Lock& lock) {
  std::vector<std::shared_ptr<SimThread>> picked;
  picked.swap(picked_);
  lock.unlock();
  for (const std::shared_ptr<SimThread>& thread : picked) {
    thread->turn_.Give();
  }
}

// Whoever is at its end never comes back from here, so nothing of this frame may wait for that.
void Scheduler::SwitchToPicked(Lock& lock) {
  SimThread& self = *currentThread;
  SimThread& next = *picked_.front();
  picked_.clear();
  lock.unlock();
  if (&next != &self) {
    currentThread = &next;
    self.fiber_.SwitchTo(next.fiber_);
  }
}

// Fills the places of running threads: one in serial mode, as many as can run in parallel mode.
void Scheduler::Dispatch() {
  const bool serial = options_.mode == SchedulerMode::Serial;
  while (!serial || running_ == 0) {
    SimThread* const next = PickNext();
    if (next != nullptr) {
      CountPass();
      LetRun(*next);
    } else if (running_ > 0) {
      return;
    } else if (!AdvanceTime()) {
      Stuck("no thread can run and none waits for a time");
    }
  }
}

void Scheduler::MoveToBack(const SimThread& thread) {
  const auto at = std::find_if(threads_.begin(), threads_.end(),
                               [&](const auto& each) { return each.get() == &thread; });
  std::rotate(at, at + 1, threads_.end());
}

bool Scheduler::IsCandidate(const SimThread& thread) const {
  const bool ended = serviceEnded_ && thread.owner_ == ThreadOwner::Service;
  return !ended &&
         (thread.state_ == SimThread::State::Ready || thread.state_ == SimThread::State::Blocked);
}

// Those that get what they wait for are ready; they run when their turn comes.
void Scheduler::ServeWaiting() {
  for (const std::shared_ptr<SimThread>& thread : threads_) {
    if (IsCandidate(*thread) && thread->state_ == SimThread::State::Blocked &&
        (*thread->tryTake_)()) {
      thread->state_ = SimThread::State::Ready;
    }
  }
}

// With a seed the order is drawn anew each time. Blocked threads are among the drawn: their time
// may be up, or what they wait for may be there.
SimThread* Scheduler::PickNext() {
  std::vector<SimThread*> waiting;
  waiting.reserve(threads_.size());
  for (const std::shared_ptr<SimThread>& thread : threads_) {
    if (IsCandidate(*thread)) {
      waiting.push_back(thread.get());
    }
  }
  if (options_.seed != 0) {
    for (std::size_t i = waiting.size(); i > 1; --i) {
      std::swap(waiting[i - 1], waiting[NextRandom() % i]);
    }
  }
  const auto chosen = std::find_if(waiting.begin(), waiting.end(),
                                   [&](SimThread* thread) { return TakeIfEligible(*thread); });
  return chosen == waiting.end() ? nullptr : *chosen;
}

// What a thread waits for comes before its time-out, as on Windows when both are there at once.
bool Scheduler::TakeIfEligible(SimThread& thread) {
  if (thread.state_ == SimThread::State::Ready || (*thread.tryTake_)()) {
    return true;
  }
  thread.timedOut_ = thread.deadlineMs_ <= nowMs_;
  return thread.timedOut_;
}

// Moves the clock to the next deadline; false when nobody waits for one.
bool Scheduler::AdvanceTime() {
  std::uint64_t next = NoDeadline;
  for (const std::shared_ptr<SimThread>& thread : threads_) {
    if (IsCandidate(*thread)) {
      next = std::min(next, thread->deadlineMs_);
    }
  }
  if (next == NoDeadline) {
    return false;
  }
  if (options_.realtime) {
    std::this_thread::sleep_for(std::chrono::milliseconds(next - nowMs_));
  }
  nowMs_ = next;
  passesAtThisTime_ = 0;
  return true;
}

void Scheduler::LetRun(SimThread& thread) {
  thread.state_ = SimThread::State::Running;
  ++running_;
  picked_.push_back(thread.shared_from_this());
}

// A loop that polls without ever sleeping would hang the host. Time has to pass for every one.
void Scheduler::CountPass() {
  if (++passesAtThisTime_ > MostPassesAtOneTime) {
    Stuck("threads hand over to each other for ever and time stands still");
  }
}

// What every thread is doing, for the report of a stuck run.
std::string Scheduler::Describe() const {
  static constexpr const char* StateNames[] = {"suspended", "ready", "running", "waiting", "ended"};
  std::string text = "at " + std::to_string(nowMs_) + " ms:";
  for (const std::shared_ptr<SimThread>& thread : threads_) {
    text += "\n  " + thread->name_ + " (" + std::to_string(thread->id_) + ") " +
            StateNames[static_cast<int>(thread->state_)];
    if (thread->state_ == SimThread::State::Blocked && thread->deadlineMs_ != NoDeadline) {
      text += " until " + std::to_string(thread->deadlineMs_) + " ms";
    }
  }
  return text;
}

// The handler may end the process in a way of its own. Nothing sensible can follow if it does not.
void Scheduler::Stuck(const std::string& why) {
  onStuck_(why + "; " + Describe());
  std::_Exit(3);
}

// xorshift64*: small, fast, the same on every machine.
std::uint64_t Scheduler::NextRandom() {
  random_ ^= random_ >> 12;
  random_ ^= random_ << 25;
  random_ ^= random_ >> 27;
  return random_ * 0x2545F4914F6CDD1Dull;
}

}  // namespace platform
