// Failures and actions ordered by call and occurrence, or by the number of the call in the run.

#include <algorithm>

#include "tests/support/service_test.h"

namespace {

class CallGateTest : public ServiceTest {
 protected:
  // The tests count for themselves what failed.
  void SetUp() override {
    KeepFailing(Call::GetSystemPowerStatus, ERROR_GEN_FAILURE);
    StopFailing();
  }

  // Makes one call for each letter: 'p' asks for the power status, 's' sleeps, which cannot fail.
  // Returns an 'x' for each that failed.
  static std::string Make(const std::string& calls) {
    std::string outcome;
    for (const char call : calls) {
      SYSTEM_POWER_STATUS status;
      if (call == 's') {
        Sleep(1);
        outcome += '.';
      } else if (GetSystemPowerStatus(&status)) {
        outcome += '.';
      } else {
        EXPECT_EQ(GetLastError(), DWORD{ERROR_GEN_FAILURE}) << outcome;
        outcome += 'x';
      }
    }
    return outcome;
  }
};

TEST_F(CallGateTest, FailsTheOrderedCallAloneOrAllFromItOn) {
  const std::tuple<bool, u32, bool, std::string> rows[] = {
      {false, 1, false, "x......"}, {false, 3, false, "...x..."}, {false, 3, true, "...x.xx"},
      {false, 6, true, "......."},  {true, 1, false, "x......"},  {true, 3, false, "......."},
      {true, 4, false, "...x..."},  {true, 3, true, "...x.xx"},   {true, 8, true, "......."},
  };
  for (const auto& [byNumber, number, fromThenOn, outcome] : rows) {
    const u64 before = machine.gate.FailedOf(Call::GetSystemPowerStatus);
    if (byNumber) {
      machine.gate.FailNumber(machine.gate.total() + number, 0, fromThenOn);
    } else {
      machine.gate.FailCall(Call::GetSystemPowerStatus, number, ERROR_GEN_FAILURE, fromThenOn);
    }
    EXPECT_EQ(Make("ppspspp"), outcome) << byNumber << " " << number;
    EXPECT_EQ(machine.gate.FailedOf(Call::GetSystemPowerStatus) - before,
              static_cast<u64>(std::count(outcome.begin(), outcome.end(), 'x')));
    StopFailing();
    EXPECT_EQ(Make("ppp"), "...") << "an order forgotten";
  }
}

TEST_F(CallGateTest, HoldsTheThreadsOfTheCallsWithTheNumbers) {
  const u64 first = machine.gate.total() + 1;
  machine.gate.HoldNumber(first + 1, 3'000);
  machine.gate.HoldNumber(first + 2, 1);
  machine.gate.HoldNumber(first + 2, 10);  // the later order counts
  machine.gate.FailNumber(first + 2, 0);
  u64 actedMs = 0;
  machine.gate.AtNumber(first + 1, [&] { actedMs = nowMs(); });
  const u64 beganMs = nowMs();

  // The first thread stands still in its sleep; meanwhile the second is held and goes on.
  u64 endedMs[2] = {};
  const Thread slow = OnThread([&] { Make("ps"), endedMs[0] = nowMs(); });
  PassTime(1);
  const Thread quick = OnThread([&] { Make("p"), endedMs[1] = nowMs(); });
  WaitFor(slow);
  EXPECT_EQ(endedMs[0], beganMs + 3'001);
  EXPECT_EQ(endedMs[1], beganMs + 11);
  EXPECT_EQ(actedMs, beganMs + 3'000);

  machine.gate.HoldNumber(machine.gate.total() + 1, 100);
  StopFailing();
  const u64 forgottenMs = nowMs();
  Make("p");
  EXPECT_EQ(nowMs(), forgottenMs);
}

}  // namespace
