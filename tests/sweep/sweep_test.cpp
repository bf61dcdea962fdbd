// Breaks one update in every place there is: each platform call fails, the keyboard is pulled at
// each transfer, the service is killed at each call, each request for memory is refused. Whatever
// happens, the promise holds, and when the trouble is over the keyboard gets its firmware.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "tests/sweep/small_update.h"

namespace {

using simulator::RunTrial;
using simulator::TrialPlan;
using simulator::TrialReport;

// Every place by default; every n-th where the program is slow, as under a sanitizer.
u64 Stride() {
  const char* const stride = std::getenv("VANTREL_SWEEP_STRIDE");
  return stride == nullptr ? 1 : std::strtoull(stride, nullptr, 10);
}

class SweepTest : public ::testing::Test {
 protected:
  SweepTest() {
    folder_ = (std::filesystem::temp_directory_path() / "vantrel-sweep-XXXXXX").string();
    EXPECT_NE(mkdtemp(folder_.data()), nullptr);
  }

  ~SweepTest() override {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  // The update with nothing in its way: how many calls and transfers it has.
  TrialReport RunUndisturbed(const TrialPlan& plan) {
    const TrialReport report = RunTrial(plan, folder_);
    EXPECT_TRUE(report.updated);
    EXPECT_EQ(report.lives, 1u);
    EXPECT_EQ(report.words.count("DISCONNECT"), 0u);
    return report;
  }

  // Runs one trial for each place, which arm puts into the plan, and prints what came of them.
  void Sweep(const char* what, TrialPlan plan, u64 places,
             const std::function<void(TrialPlan&, u64)>& arm,
             const std::function<void(const TrialReport&)>& look = {}) {
    u64 runs = 0;
    u64 met = 0;
    u64 newStarts = 0;
    for (u64 place = 1; place <= places; place += Stride()) {
      arm(plan, place);
      plan.name = std::string(what) + " " + std::to_string(place);
      const TrialReport report = RunTrial(plan, folder_);
      for (const std::string& violation : report.violations) {
        ADD_FAILURE() << plan.name << ": " << violation;
      }
      if (look) {
        SCOPED_TRACE(plan.name);
        look(report);
      }
      ++runs;
      met += report.troubles.empty() ? 0 : 1;
      newStarts += report.lives - 1;
    }
    std::printf("%s: %llu runs, %llu in which it happened, %llu new starts of the service\n", what,
                static_cast<unsigned long long>(runs), static_cast<unsigned long long>(met),
                static_cast<unsigned long long>(newStarts));
    EXPECT_GT(met, 0u) << "nothing was disturbed";
  }

  std::string folder_;
};

struct CallFaultCase {
  const char* name;
  Road road;
  u32 errorIndex;
  bool fromThenOn;
};

class CallFaultSweep : public SweepTest, public ::testing::WithParamInterface<CallFaultCase> {};

TEST_P(CallFaultSweep, EveryCallFails) {
  const CallFaultCase& fault = GetParam();
  const TrialPlan plan = SmallUpdate(fault.road);
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep("call fails", plan, undisturbed.troubledCalls, [&](TrialPlan& armed, u64 place) {
    armed.callFault = simulator::CallFault{place, fault.errorIndex, fault.fromThenOn};
  });
}

INSTANTIATE_TEST_SUITE_P(
    Calls, CallFaultSweep,
    ::testing::Values(CallFaultCase{"OnceFirstErrorAtStartUp", Road::AtStartUp, 0, false},
                      CallFaultCase{"OnceFirstErrorOnArrival", Road::OnArrival, 0, false},
                      CallFaultCase{"OnceSecondErrorOnArrival", Road::OnArrival, 1, false},
                      CallFaultCase{"OnceThirdErrorOnArrival", Road::OnArrival, 2, false},
                      CallFaultCase{"FromThenOnOnArrival", Road::OnArrival, 0, true},
                      CallFaultCase{"FromThenOnAtStartUp", Road::AtStartUp, 0, true}),
    [](const auto& testCase) { return std::string(testCase.param.name); });

struct PullCase {
  const char* name;
  Road road;
  u64 awayMs;
};

class PullSweep : public SweepTest, public ::testing::WithParamInterface<PullCase> {};

TEST_P(PullSweep, AtEveryTransfer) {
  const TrialPlan plan = SmallUpdate(GetParam().road);
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep("keyboard pulled", plan, undisturbed.troubledTransfers, [&](TrialPlan& armed, u64 place) {
    armed.pull = simulator::Pull{place, GetParam().awayMs};
  });
}

INSTANTIATE_TEST_SUITE_P(Transfers, PullSweep,
                         ::testing::Values(PullCase{"BackAtOnce", Road::OnArrival, 1},
                                           PullCase{"BackBeforeTheTick", Road::OnArrival, 500},
                                           PullCase{"BackAfterTheTick", Road::OnArrival, 7'000},
                                           PullCase{"BackAtOnceAtStartUp", Road::AtStartUp, 1},
                                           PullCase{"BackLateAtStartUp", Road::AtStartUp, 9'000}),
                         [](const auto& testCase) { return std::string(testCase.param.name); });

// A second announcement of a device whose update is under way is none of the update's business.
TEST_F(SweepTest, AnnouncedAgainAtEveryTransfer) {
  const TrialPlan plan = SmallUpdate(Road::OnArrival);
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep(
      "announced again", plan, undisturbed.lastBlockTransfer,
      [](TrialPlan& armed, u64 place) { armed.announceAtTransfer = place; },
      [&](const TrialReport& report) {
        EXPECT_EQ(report.troubledTransfers, undisturbed.troubledTransfers);
        EXPECT_EQ(report.words, undisturbed.words);
      });
}

struct SecondCase {
  const char* name;
  bool isListedFirst;
};

class SecondKeyboardSweep : public SweepTest, public ::testing::WithParamInterface<SecondCase> {};

TEST_P(SecondKeyboardSweep, AtEveryTransfer) {
  TrialPlan plan = SmallUpdate(Road::OnArrival);
  plan.secondIsListedFirst = GetParam().isListedFirst;
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep("second keyboard attached", plan, undisturbed.troubledTransfers,
        [](TrialPlan& armed, u64 place) { armed.attachSecondAtTransfer = place; });
}

INSTANTIATE_TEST_SUITE_P(Transfers, SecondKeyboardSweep,
                         ::testing::Values(SecondCase{"InFront", true},
                                           SecondCase{"Behind", false}),
                         [](const auto& testCase) { return std::string(testCase.param.name); });

class KillSweep : public SweepTest, public ::testing::WithParamInterface<Road> {};

TEST_P(KillSweep, AtEveryCall) {
  const TrialPlan plan = SmallUpdate(GetParam());
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep("service killed", plan, undisturbed.troubledCalls,
        [](TrialPlan& armed, u64 place) { armed.killAtCall = place; });
}

INSTANTIATE_TEST_SUITE_P(Lives, KillSweep, ::testing::Values(Road::AtStartUp, Road::OnArrival),
                         [](const auto& testCase) {
                           return std::string(testCase.param == Road::AtStartUp ? "AtStartUp"
                                                                                : "OnArrival");
                         });

TEST_F(SweepTest, EveryRequestForMemoryIsRefused) {
  const TrialPlan plan = SmallUpdate(Road::OnArrival);
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep("memory refused", plan, undisturbed.troubledMemoryRequests,
        [](TrialPlan& armed, u64 place) { armed.refuseMemory = place; });
}

}  // namespace
