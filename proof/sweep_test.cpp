// Breaks one update in every place there is: each platform call fails, the keyboard is pulled at
// each transfer, the service is killed at each call, each request for memory is refused. Whatever
// happens, the promise holds, and when the trouble is over the keyboard gets its firmware.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "proof/small_update.h"
#include "proof/trial.h"
#include "simulator/host_folder.h"
#include "tests/support/table.h"

namespace proof {

inline void PrintTo(Road road, std::ostream* out) {
  *out << (road == Road::AtStartUp ? "AtStartUp" : "OnArrival");
}

namespace {

// Every place by default; every n-th where the program is slow, as under a sanitizer.
u64 Stride() {
  const char* const stride = std::getenv("VANTREL_SWEEP_STRIDE");
  return stride == nullptr ? 1 : std::strtoull(stride, nullptr, 10);
}

// A sweep first runs the update undisturbed to see how many places there are, and then once for
// each.
class SweepTest : public ::testing::Test {
 protected:
  // The update with nothing in its way: how many calls and transfers it has.
  TrialReport RunUndisturbed(const TrialPlan& plan) {
    const TrialReport report = RunTrial(plan, folder_.path());
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
    for (u64 place = 1; place <= places && !HasFailure(); place += Stride()) {
      arm(plan, place);
      plan.name = std::string(what) + " " + std::to_string(place);
      const TrialReport report = RunTrial(plan, folder_.path());
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

  const simulator::HostFolder folder_;
};

struct CallFaultCase : NamedRow {
  Road road;
  u32 errorIndex;
  bool fromThenOn;
};

class CallFaultSweep : public SweepTest, public OfTable<CallFaultCase> {};

TEST_OF_ROW(CallFaultSweep, EveryCallFails) {
  const CallFaultCase& fault = row();
  const TrialPlan plan = SmallUpdate(fault.road);
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep("call fails", plan, undisturbed.troubledCalls, [&](TrialPlan& armed, u64 place) {
    armed.troubles = {
        MakeTrouble("fail", FaultPlace::Call, place, fault.errorIndex, fault.fromThenOn ? 1 : 0)};
  });
}

ROWS(CallFaultSweep, EveryCallFails, NameOfRow,
     {CallFaultCase{{"OnceFirstErrorAtStartUp"}, Road::AtStartUp, 0, false},
      CallFaultCase{{"OnceFirstErrorOnArrival"}, Road::OnArrival, 0, false},
      CallFaultCase{{"OnceSecondErrorOnArrival"}, Road::OnArrival, 1, false},
      CallFaultCase{{"OnceThirdErrorOnArrival"}, Road::OnArrival, 2, false},
      CallFaultCase{{"FromThenOnOnArrival"}, Road::OnArrival, 0, true},
      CallFaultCase{{"FromThenOnAtStartUp"}, Road::AtStartUp, 0, true}});

struct PullCase : NamedRow {
  Road road;
  u64 awayMs;
};

class PullSweep : public SweepTest, public OfTable<PullCase> {};

TEST_OF_ROW(PullSweep, AtEveryTransfer) {
  const TrialPlan plan = SmallUpdate(row().road);
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep("keyboard pulled", plan, undisturbed.troubledTransfers, [&](TrialPlan& armed, u64 place) {
    armed.troubles = {MakeTrouble("unplug", FaultPlace::Transfer, place, row().awayMs)};
  });
}

ROWS(PullSweep, AtEveryTransfer, NameOfRow,
     {PullCase{{"BackAtOnce"}, Road::OnArrival, 1},
      PullCase{{"BackBeforeTheTick"}, Road::OnArrival, 500},
      PullCase{{"BackAfterTheTick"}, Road::OnArrival, 7'000},
      PullCase{{"BackAtOnceAtStartUp"}, Road::AtStartUp, 1},
      PullCase{{"BackLateAtStartUp"}, Road::AtStartUp, 9'000}});

// A second announcement of a device whose update is under way is none of the update's business.
TEST_F(SweepTest, AnnouncedAgainAtEveryTransfer) {
  const TrialPlan plan = SmallUpdate(Road::OnArrival);
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep(
      "announced again", plan, undisturbed.lastBlockTransfer,
      [](TrialPlan& armed, u64 place) {
        armed.troubles = {MakeTrouble("announce", FaultPlace::Transfer, place)};
      },
      [&](const TrialReport& report) {
        EXPECT_EQ(report.troubledTransfers, undisturbed.troubledTransfers);
        EXPECT_EQ(report.words, undisturbed.words);
      });
}

struct SecondCase : NamedRow {
  bool isListedFirst;
};

class SecondKeyboardSweep : public SweepTest, public OfTable<SecondCase> {};

TEST_OF_ROW(SecondKeyboardSweep, AtEveryTransfer) {
  TrialPlan plan = SmallUpdate(Road::OnArrival);
  plan.secondIsListedFirst = row().isListedFirst;
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep("second keyboard attached", plan, undisturbed.troubledTransfers,
        [](TrialPlan& armed, u64 place) {
          armed.troubles = {MakeTrouble("second", FaultPlace::Transfer, place)};
        });
}

ROWS(SecondKeyboardSweep, AtEveryTransfer, NameOfRow,
     {SecondCase{{"InFront"}, true}, SecondCase{{"Behind"}, false}});

class KillSweep : public SweepTest, public OfTable<Road> {};

TEST_OF_ROW(KillSweep, AtEveryCall) {
  const TrialPlan plan = SmallUpdate(row());
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep("service killed", plan, undisturbed.troubledCalls, [](TrialPlan& armed, u64 place) {
    armed.troubles = {MakeTrouble("kill", FaultPlace::Call, place)};
  });
}

ROWS(KillSweep, AtEveryCall, testing::PrintToString<Road>, {Road::AtStartUp, Road::OnArrival});

struct HoldCase : NamedRow {
  Road road;
  u64 milliseconds;
};

// The lowest priority makes it real: a thread may stand still anywhere, longer than a tick.
class HoldSweep : public SweepTest, public OfTable<HoldCase> {};

TEST_OF_ROW(HoldSweep, TheThreadOfEveryCall) {
  const TrialPlan plan = SmallUpdate(row().road);
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep("thread held up", plan, undisturbed.troubledCalls, [&](TrialPlan& armed, u64 place) {
    armed.troubles = {MakeTrouble("hold", FaultPlace::Call, place, row().milliseconds)};
  });
}

ROWS(HoldSweep, TheThreadOfEveryCall, NameOfRow,
     {HoldCase{{"AMomentAtStartUp"}, Road::AtStartUp, 1},
      HoldCase{{"JustBelowATickAtStartUp"}, Road::AtStartUp, 2'999},
      HoldCase{{"JustAboveATickAtStartUp"}, Road::AtStartUp, 3'001},
      HoldCase{{"LongAtStartUp"}, Road::AtStartUp, 10'000},
      HoldCase{{"AMomentOnArrival"}, Road::OnArrival, 1},
      HoldCase{{"JustBelowATickOnArrival"}, Road::OnArrival, 2'999},
      HoldCase{{"JustAboveATickOnArrival"}, Road::OnArrival, 3'001},
      HoldCase{{"LongOnArrival"}, Road::OnArrival, 10'000}});

// A removal and an arrival that are told the other way round, and both beside other notices.
class OrderSweep : public SweepTest, public OfTable<u64> {};

TEST_OF_ROW(OrderSweep, PulledAndToldTheOtherWayRound) {
  TrialPlan plan = SmallUpdate(Road::OnArrival);
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep("notices turned round", plan, undisturbed.troubledTransfers,
        [&](TrialPlan& armed, u64 place) {
          armed.troubles = {MakeTrouble("unplug", FaultPlace::Transfer, place, row(), 3)};
        });
}

ROWS(OrderSweep, PulledAndToldTheOtherWayRound,
     [](u64 awayMs) { return "BackAfter" + std::to_string(awayMs) + "Ms"; }, {1, 30, 500});

TEST_F(SweepTest, EveryRequestForMemoryIsRefused) {
  const TrialPlan plan = SmallUpdate(Road::OnArrival);
  const TrialReport undisturbed = RunUndisturbed(plan);
  Sweep("memory refused", plan, undisturbed.troubledMemoryRequests,
        [](TrialPlan& armed, u64 place) {
          armed.troubles = {MakeTrouble("refuse", FaultPlace::Request, place)};
        });
}

}  // namespace

}  // namespace proof
