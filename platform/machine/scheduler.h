// Virtual time, and who runs next.
//
// Every thread of the simulated machine is a host thread that the scheduler holds back or lets go,
// or, where many runs are wanted soon, a fiber: the run is the same, and no host thread is made.
// Time stands still while any of them can run and jumps to the next deadline when none can; equal
// deadlines fire in the order in which they were asked for. All blocking of the machine goes
// through WaitUntil and Yield: a thread that blocks on anything else looks runnable, and time
// stops.
//
// Serial mode lets one thread run at a time, which hands over only inside these calls, so that a
// run repeats exactly. A seed other than 0 draws who goes next instead of going by order. Parallel
// mode lets every thread run that can, for the thread sanitizer.
#pragma once

#include <semaphore.h>

#include <csetjmp>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/machine/fiber.h"

namespace platform {

inline constexpr std::uint64_t NoDeadline = ~std::uint64_t{0};

// Serial runs repeat, parallel ones do not. The service must not be able to tell them apart.
enum class SchedulerMode { Serial, Parallel };

// A run is told by these three and by what its script does: the same ones give the same run, except
// in parallel mode.
struct SchedulerOptions {
  SchedulerMode mode = SchedulerMode::Serial;
  std::uint64_t seed = 0;  // 0: in order
  bool realtime = false;   // paces virtual time by the wall clock
  bool fibers = false;     // serial mode only, and where FibersWork; a debugger shows one thread
};

// The two worlds that share the clock. When the service's process ends, its threads never run
// again; the machine's own (the keyboard, the script of a run) go on.
enum class ThreadOwner { Service, Machine };

// What a thread sleeps on until it may run. The standard library's semaphore tries again and again
// before it sleeps, which takes the processor from the thread it waits for.
class Turn {
 public:
  Turn() { sem_init(&given_, 0, 0); }
  ~Turn() { sem_destroy(&given_); }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  void Give() { sem_post(&given_); }
  void Await() {
    while (sem_wait(&given_) != 0) {  // a signal came in between
    }
  }

 private:
  sem_t given_;
};

// A thread of the machine, alive or ended. Handles keep it after its end, for its exit code.
class SimThread : public std::enable_shared_from_this<SimThread> {
 public:
  std::uint32_t id() const { return id_; }

  // Bookkeeping of the thread calls, guarded by the scheduler's lock.
  int priority = 0;
  std::uint32_t exitCode = 0;
  bool hasEnded() const { return state_ == State::Ended; }

  // What GetLastError tells. For the thread itself alone.
  std::uint32_t lastError = 0;

 private:
  friend class Scheduler;
  enum class State { Suspended, Ready, Running, Blocked, Ended };

  std::string name_;
  std::uint32_t id_ = 0;
  ThreadOwner owner_ = ThreadOwner::Machine;
  State state_ = State::Suspended;
  std::uint64_t deadlineMs_ = NoDeadline;
  bool timedOut_ = false;
  const std::function<bool()>* tryTake_ = nullptr;
  std::function<std::uint32_t()> body_;
  std::jmp_buf* exit_ = nullptr;  // where ExitCurrentThread lands
  Turn turn_;                     // given when the thread has been picked
  Fiber fiber_;                   // in place of a host thread and its turn
};

// Windows would run all of these threads at once, on several processors. One at a time finds the
// same faults where the service shares something across its calls, and finds them again.
class Scheduler {
 public:
  explicit Scheduler(const SchedulerOptions& options);

  // Milliseconds of virtual time since the machine was switched on. It never runs back, and does
  // not move while the calling thread runs.
  std::uint64_t NowMs() const;

  // Makes the calling host thread a thread of the machine. Once per host thread, before it calls
  // anything else here. With fibers there is one such thread.
  void AttachCurrentThread(const std::string& name, ThreadOwner owner);

  // Starts a thread that runs body and whose exit code is what body returns. It runs when the
  // scheduler picks it, never before Spawn has returned in serial mode.
  std::shared_ptr<SimThread> Spawn(const std::string& name, ThreadOwner owner, bool suspended,
                                   std::function<std::uint32_t()> body);

  // Lets a suspended thread run; true when it was suspended. Whoever was never suspended, or is
  // resumed a second time, is left alone.
  bool Resume(SimThread& thread);

  // Ends the calling thread with the exit code, skipping the destructors of its frames.
  [[noreturn]] void ExitCurrentThread(std::uint32_t exitCode);

  // Blocks until tryTake returns true (true) or the deadline has passed (false). tryTake is asked
  // with the scheduler's lock held, possibly on another thread; it consumes what it takes exactly
  // when it returns true, and calls nothing of the scheduler. A deadline of now or earlier yields
  // once.
  bool WaitUntil(const std::function<bool()>& tryTake, std::uint64_t deadlineMs);

  // Sleeps that long in virtual time. 0 yields.
  void SleepMs(std::uint64_t milliseconds);

  // Lets the other threads that can run go first.
  void Yield();

  // With a seed: now and then lets another thread go first. Called at the entry of every platform
  // call, the only places where a serial run hands over. Also the place where a thread of an ended
  // process stops for good.
  void Checkpoint();

  // Changes state that waiting threads look at, with the lock held. What they wait for is theirs
  // when the call returns, in the order in which they began to wait: a mutex is handed on, and an
  // event that is set and at once reset has let them go.
  void Update(const std::function<void()>& change);

  // From now on no thread of the service runs. The call returns when called by a thread of the
  // machine, and never when called by one of the service. Handles, heap blocks and files of the
  // process stay as they are, for whoever looks at what is left.
  void EndServiceProcess();

  // Called with a sentence when no thread can ever run again or time stands still although threads
  // run; by default it ends the host process with exit code 3. The handler runs with the
  // scheduler's lock held, on the thread that found out: it must ask nothing of the machine.
  void OnStuck(std::function<void(const std::string&)> handler);

  // The thread of the machine that the calling host thread is; null when it is none.
  static SimThread* Current();

 private:
  using Lock = std::unique_lock<std::mutex>;

  // Runs the body on the thread's own stack, and gives its place up.
  void RunThread(SimThread& thread);
  // Give up the lock: the first returns when the calling thread has been picked again.
  void BlockCurrent(Lock& lock, SimThread& self);
  void HandOver(Lock& lock);
  void TellPicked(Lock& lock);
  void SwitchToPicked(Lock& lock);
  // The rest of the private half works with the lock held.
  void Dispatch();
  void MoveToBack(const SimThread& thread);
  // Whether the thread is not of an ended process, and ready or waiting.
  bool IsCandidate(const SimThread& thread) const;
  // Lets the blocked threads take what they wait for, the longest waiting first.
  void ServeWaiting();
  SimThread* PickNext();
  // Whether the thread can run now; then it has what it waited for, or knows that its time is up.
  bool TakeIfEligible(SimThread& thread);
  // In a paced run the host sleeps for the time in between, with the lock held: nobody could run
  // anyway.
  bool AdvanceTime();
  void LetRun(SimThread& thread);
  std::uint64_t NextRandom();
  // Finds runs in which time stands still although threads run.
  void CountPass();
  // A line for each thread that has not ended.
  std::string Describe() const;
  [[noreturn]] void Stuck(const std::string& why);

  const SchedulerOptions options_;
  mutable std::mutex lock_;
  // In the order in which they became ready or began to wait.
  std::vector<std::shared_ptr<SimThread>> threads_;
  std::vector<std::shared_ptr<SimThread>> picked_;  // and not told so yet
  std::shared_ptr<SimThread> ended_;  // the last one that ended: it may not have been left yet
  std::uint64_t nowMs_ = 0;
  std::uint32_t nextThreadId_ = 1000;
  std::uint32_t running_ = 0;
  std::uint64_t random_;
  std::uint64_t passesAtThisTime_ = 0;
  bool serviceEnded_ = false;
  std::function<void(const std::string&)> onStuck_;
};

}  // namespace platform
