#include "dfuengine/worker_thread.h"

#include <atomic>

#include "common/handles.h"
#include "tests/support/tablet_test.h"

namespace {

using platform::Call;
using platform::HandleKind;

// A worker whose behaviour the test supplies. Without that it steps at once, and then once a second
// for ever.
class Probe : public WorkerThread {
 public:
  i32 Step() override { return onStep(++steps); }
  u32 ExtraWaitHandleCount(HANDLE* handles) override { return onCount(handles); }
  i32 OnExtraWaitHandle(u32 index) override { return onHandle(index); }
  u32 StepTimeout() override { return onTimeout(); }

  std::atomic<u32> steps = 0;
  std::function<i32(u32 number)> onStep = [](u32) { return 1; };
  std::function<u32(HANDLE* handles)> onCount = [](HANDLE*) { return 0; };
  std::function<i32(u32 index)> onHandle = [](u32) { return 1; };
  std::function<u32()> onTimeout = [this] { return steps == 0 ? 0 : 1000; };
};

class WorkerThreadTest : public TabletTest {
 protected:
  // Stops the worker, which leaves nothing of its thread, and tells the exit code of that.
  DWORD StopForExitCode(WorkerThread& worker) {
    DWORD exitCode = 77;
    EXPECT_EQ(worker.Stop(&exitCode), 1);
    EXPECT_EQ(machine.handles.OpenCount(HandleKind::Thread), 0u);
    EXPECT_FALSE(worker.IsRunning());
    DWORD untouched = 77;
    EXPECT_EQ(worker.Stop(&untouched), 0);
    EXPECT_EQ(untouched, 77u);
    return exitCode;
  }
};

TEST_F(WorkerThreadTest, EndsWhenAStepReturnsZero) {
  constexpr u32 Timeouts[] = {0, 500, 0, 7, 1000};
  std::vector<u64> times;
  Probe probe;
  probe.onTimeout = [&] { return Timeouts[probe.steps]; };
  probe.onStep = [&](u32 number) {
    times.push_back(nowMs());
    return number < 5;
  };
  const u64 start = nowMs();
  probe.Start();
  PassTime(2000);
  EXPECT_FALSE(probe.IsRunning());
  EXPECT_EQ(StopForExitCode(probe), 2u);
  EXPECT_EQ(times, (std::vector<u64>{start, start + 500, start + 500, start + 507, start + 1507}));
}

TEST_F(WorkerThreadTest, HasOneThreadAtATimeAndAnotherAfterAStop) {
  Probe probe;
  EXPECT_EQ(probe.Start(), 1);
  EXPECT_EQ(probe.Start(), 0);
  EXPECT_TRUE(probe.IsRunning());
  EXPECT_EQ(machine.gate.CountOf(Call::CreateThread), 1u);
  PassTime(10);
  EXPECT_EQ(StopForExitCode(probe), 1u);
  EXPECT_EQ(probe.steps, 1u);

  EXPECT_EQ(probe.Start(), 1);
  PassTime(1500);
  EXPECT_EQ(StopForExitCode(probe), 1u);
  EXPECT_EQ(probe.steps, 2u);
}

TEST_F(WorkerThreadTest, ServesNineFurtherHandlesAtTheMost) {
  KernelHandle further[ExtraWaitHandleLimit - 1];
  for (KernelHandle& event : further) {
    event.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  }
  std::vector<u32> served;
  Probe probe;
  probe.onCount = [&](HANDLE* handles) {
    for (const KernelHandle& event : further) {
      *handles++ = event.get();
    }
    return 9;
  };
  probe.onHandle = [&](u32 index) {
    served.push_back(index);
    return index != 0;
  };
  SetEvent(further[3].get());  // before the start: forgotten
  probe.Start();
  for (const u32 index : {8u, 2u, 0u, 5u}) {
    PassTime(10);
    SetEvent(further[index].get());
  }
  PassTime(10);
  EXPECT_EQ(StopForExitCode(probe), 1u);
  EXPECT_EQ(served, (std::vector<u32>{8, 2, 0}));

  Probe tooMany;
  tooMany.onCount = [](HANDLE*) { return 10; };
  tooMany.Start();
  PassTime(10);
  EXPECT_EQ(StopForExitCode(tooMany), 0u);
  EXPECT_EQ(tooMany.steps, 0u);
}

TEST_F(WorkerThreadTest, StopBeforeTheFirstWaitIsNotForgotten) {
  Probe probe;
  probe.onCount = [&](HANDLE*) {
    PassTime(10);  // meanwhile the stop comes
    return 0;
  };
  probe.Start();
  EXPECT_EQ(StopForExitCode(probe), 1u);
  EXPECT_EQ(probe.steps, 0u);
}

TEST_F(WorkerThreadTest, RunsAtLowestPriorityFromItsFirstMomentOn) {
  std::atomic<int> priority = 77;
  Probe probe;
  probe.onCount = [&](HANDLE*) {
    priority = platform::Scheduler::Current()->priority;
    return 0;
  };
  probe.onStep = [](u32) { return 0; };
  // A thread that may run already does so in front of either call.
  const platform::Observation calls = machine.gate.Observe([&](Call call) {
    if (call == Call::SetThreadPriority || call == Call::ResumeThread) {
      PassTime(100);
      EXPECT_EQ(priority, 77);
    }
  });
  probe.Start();
  PassTime(10);
  EXPECT_EQ(priority, THREAD_PRIORITY_LOWEST);
  EXPECT_EQ(StopForExitCode(probe), 2u);
}

TEST_F(WorkerThreadTest, WithoutAThreadThereIsNothingToStop) {
  FailCall(Call::CreateThread, ERROR_NOT_ENOUGH_MEMORY);
  Probe probe;
  EXPECT_EQ(probe.Start(), 0);
  EXPECT_FALSE(probe.IsRunning());
  EXPECT_EQ(probe.Stop(nullptr), 0);
}

TEST_F(WorkerThreadTest, StopsAThreadThatCouldNotBeResumed) {
  FailCall(Call::ResumeThread, ERROR_ACCESS_DENIED);
  Probe probe;
  EXPECT_EQ(probe.Start(), 0);
  EXPECT_FALSE(probe.IsRunning());
  EXPECT_EQ(StopForExitCode(probe), 1u);
  EXPECT_EQ(probe.steps, 0u);
}

// Whoever destroyed the object then would pull it away from under the thread.
TEST_F(WorkerThreadTest, StopWaitsOnWhenItsWaitFails) {
  std::atomic<bool> ended = false;
  Probe probe;
  probe.onStep = [&](u32) {
    PassTime(100);
    ended = true;
    return 0;
  };
  probe.Start();
  PassTime(10);
  FailCall(Call::WaitForSingleObject, ERROR_INVALID_HANDLE);
  EXPECT_EQ(StopForExitCode(probe), 2u);
  EXPECT_TRUE(ended);
}

TEST_F(WorkerThreadTest, WaitThatFailsCountsAsATimeOutAndStillHearsTheStop) {
  KeepFailing(Call::WaitForMultipleObjects, ERROR_INVALID_HANDLE);
  Probe probe;
  probe.onStep = [&](u32) {
    PassTime(100);
    return 1;
  };
  probe.Start();
  PassTime(350);
  EXPECT_EQ(StopForExitCode(probe), 1u);
  EXPECT_EQ(probe.steps, 4u);
}

}  // namespace
