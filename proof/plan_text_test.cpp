// Plans as text: every drawn plan reads back as it was, and a wrong one is refused with its line.
// What --shrink makes of a plan that fails.

#include "proof/plan_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "proof/draw.h"
#include "proof/shrink.h"

namespace proof {

namespace {

// Empty when the text is a plan.
std::string ReasonFor(const std::string& text) {
  TrialPlan plan;
  std::string reason;
  const bool isRead = ReadPlan(text, plan, reason);
  EXPECT_EQ(isRead, reason.empty());
  return reason;
}

TEST(PlanTextTest, ReadsEveryDrawnPlanBack) {
  std::set<const TroubleKind*> seen;
  for (u64 seed = 1; seed <= 2'000; ++seed) {
    const TrialPlan plan = DrawTrial(seed);
    const std::string text = PlanText(plan);
    TrialPlan read;
    std::string reason;
    ASSERT_TRUE(ReadPlan(text, read, reason)) << reason << "\n" << text;
    read.name = plan.name;
    ASSERT_EQ(PlanText(read), text);
    ASSERT_EQ(read.package.bytes, plan.package.bytes) << text;
    ASSERT_EQ(read.schedulerSeed, plan.schedulerSeed);
    ASSERT_EQ(read.keyboard.collections[0].keyboardInterfaces,
              plan.keyboard.collections[0].keyboardInterfaces);
    ASSERT_EQ(read.expectsUpdate, plan.expectsUpdate);
    for (const Trouble& trouble : read.troubles) {
      seen.insert(trouble.kind);
    }
  }
  const auto judged =
      std::count_if(TroubleKinds().begin(), TroubleKinds().end(),
                    [](const TroubleKind& kind) { return !kind.traits.isForBench; });
  EXPECT_EQ(seen.size() + 1, static_cast<std::size_t>(judged))
      << "all but the second announcement are drawn";
}

TEST(PlanTextTest, RefusesWhatIsNoPlan) {
  const std::string sound = PlanText(DrawTrial(3));
  ASSERT_EQ(ReasonFor(sound), "");
  const auto count = std::count(sound.begin(), sound.end(), '\n');
  const std::string next = "line " + std::to_string(count + 1) + ": ";
  const struct {
    const char* line;
    std::string reason;
  } cases[] = {
      {"speed = 3", next + "there is no setting 'speed'"},
      {"quiet-at = 90.000s", next + "quiet-at is given twice"},
      {"fault = unplug",
       next +
           "fault takes KIND@22.5s, @block7, @erase2, @report, @return, @transfer17, @call120 or "
           "@request5 and perhaps numbers, not 'unplug'"},
      {"fault = kill@call0",
       next +
           "fault takes KIND@22.5s, @block7, @erase2, @report, @return, @transfer17, @call120 or "
           "@request5 and perhaps numbers, not 'kill@call0'"},
      {"fault = kill@transfer3", next + "fault knows there unplug, second, announce, not 'kill'"},
      {"fault = kill@call3 1", next + "fault kill takes no number"},
      {"fault = hold@call3", next + "fault hold takes 1 number: for how many milliseconds"},
      {"fault = hold@call3 16777216", next + "fault hold takes numbers up to 16777215"},
      {"fault = fail@call3 0 0", "a plan has one fault of the kind 'fail'"},
      {"fault = stop@91s", "the fault 'stop@91.000s' comes after quiet-at"},
      {"fault = stall@block7", "no trial can judge what becomes of the fault 'stall@block7'"},
      {"image-address = 0x08000004",
       "the package's target 0 makes no firmware for this map and image-address"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(ReasonFor(sound + test.line + "\n"), test.reason);
  }
  EXPECT_EQ(ReasonFor("alternate-setting = none"), "the keyboard needs an alternate-setting");
  EXPECT_EQ(ReasonFor(""), "the package needs a target for alternate setting 0");
  EXPECT_EQ(ReasonFor("map = \"@F/0x0/05*001Mg\""), "a trial's map has at most 4 MiB");
}

// Fails as long as the keyboard is pulled for two seconds or more with a block to write; another
// fault is in the way, which is none of it.
std::string FailsWhenPulled(const TrialPlan& plan) {
  for (const Trouble& trouble : plan.troubles) {
    if (trouble.kind == FindTroubleKind("unplug", FaultPlace::Time) &&
        trouble.numbers[0] >= 2'000 &&
        plan.packageDraft.targets.back().elements[0].sizeBytes > 70) {
      return "at " + std::to_string(trouble.at) + ".000 s: expected 3, found 4 (of 7)";
    }
  }
  return plan.keyboard.leaveDelayMs == 0 ? "something else" : "";
}

TEST(ShrinkTest, LeavesWhatMatters) {
  TrialPlan plan = DrawTrial(3);
  plan.keyboard.leaveDelayMs = 20;
  plan.troubles = {MakeTrouble("late", FaultPlace::Time, 1'000, 20),
                   MakeTrouble("unplug", FaultPlace::Time, 30'000, 9'000),
                   MakeTrouble("stop", FaultPlace::Time, 40'000),
                   MakeTrouble("hold", FaultPlace::Call, 7, 3'000)};
  EXPECT_EQ(Shrink(plan, FailsWhenPulled), "at 0.000 s: expected 3, found 4 (of 7)");
  ASSERT_EQ(plan.troubles.size(), 1u);
  EXPECT_EQ(TroubleText(plan.troubles[0]), "unplug@0.000s 2000");
  EXPECT_LT(plan.packageDraft.targets.back().elements[0].sizeBytes, 100u);
  EXPECT_EQ(plan.keyboard.bootloader.transferSize, 64);
  EXPECT_EQ(FaultOfPlan(plan), "");

  plan.troubles.clear();
  plan.keyboard.leaveDelayMs = 1;
  EXPECT_EQ(Shrink(plan, FailsWhenPulled), "") << "it does not fail";
}

}  // namespace

}  // namespace proof
