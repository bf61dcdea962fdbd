// The periodic thread: when it ticks, and what a tick does.

#include "service/tick_thread.h"

#include "dfuengine/session_values.h"
#include "tests/support/service_test.h"
#include "tests/support/stdout_capture.h"

namespace {

constexpr char TickLine[] = "elasped time :: 3000ms !!!\n";
constexpr char StepLine[] = "error:: when updating fw\n";

class TickThreadTest : public ServiceTest {
 protected:
  // A session whose operation is gone: the next step says so and ends it.
  TickThreadTest() { currentOperationId = 77; }

  Thread StartTicks() {
    return OnThread([this] { result_ = TickThread(nullptr); });
  }

  std::size_t Ticks() const { return output_.Text().size() / (sizeof(TickLine) - 1); }

  void ExpectTicksAt(const std::vector<u64>& timesMs) {
    for (std::size_t i = 0; i < timesMs.size(); ++i) {
      PassTime(timesMs[i] - 1 - nowMs());
      EXPECT_EQ(Ticks(), i) << "before " << timesMs[i] << " ms";
      PassTime(2);
      EXPECT_EQ(Ticks(), i + 1) << "after " << timesMs[i] << " ms";
    }
    EXPECT_EQ(CountLines(StepLine), 1u);
  }

  const StdoutCapture output_;
  DWORD result_ = 0xFFFFFFFF;
};

TEST_F(TickThreadTest, PrintsThenStepsEvery3000Milliseconds) {
  std::string atStep;
  platform::Observation lines =
      machine.debugLog.Observe([&](const platform::DebugLine&) { atStep = output_.Text(); });
  StartTicks();
  ExpectTicksAt({3'000, 6'000, 9'000});
  lines.reset();
  EXPECT_EQ(atStep, TickLine);
}

TEST_F(TickThreadTest, CountsFromTheEndOfTheStep) {
  LogOnUser();
  AtCall(Call::CreateProcessAsUserW, 1, [this] { PassTime(700); });
  StartTicks();
  ExpectTicksAt({3'000, 6'700, 9'700});
}

TEST_F(TickThreadTest, AFailedWaitIsNoTick) {
  KeepFailing(Call::WaitForSingleObject, ERROR_INVALID_HANDLE);
  StartTicks();
  PassTime(60'000);
  EXPECT_EQ(output_.Text(), "");
  EXPECT_EQ(Lines(), Texts{});
  EXPECT_LT(TimesCalled(Call::WaitForSingleObject), 30u) << "keeps a processor busy";

  StopFailing();
  PassTime(6'500);
  EXPECT_EQ(CountLines(StepLine), 1u);
}

TEST_F(TickThreadTest, TicksWithoutItsEvent) {
  FailCall(Call::CreateEventW, ERROR_NOT_ENOUGH_MEMORY);
  StartTicks();
  ExpectTicksAt({3'000, 6'000});
}

TEST_F(TickThreadTest, EndsWhenItsEventIsSignalled) {
  const Thread ticks = StartTicks();
  PassTime(4'000);
  for (const platform::OpenHandle& open : machine.handles.OpenHandles()) {
    if (open.kind == platform::HandleKind::Event) {
      SetEvent(open.value);
    }
  }
  WaitFor(ticks);
  EXPECT_EQ(nowMs(), 4'000u);
  EXPECT_EQ(result_, 0u);
  EXPECT_EQ(Ticks(), 1u);
  EXPECT_EQ(machine.handles.OpenCount(platform::HandleKind::Event), 0u);
}

}  // namespace
