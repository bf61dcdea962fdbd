// Virtual time and who runs next, on schedulers of the tests' own: serial, whatever mode the
// machine of the other tests runs in.

#include "platform/machine/scheduler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <thread>

namespace {

using platform::NoDeadline;
using platform::Scheduler;
using platform::ThreadOwner;

// A scheduler and what its threads have noted.
struct World {
  void Note(const std::string& what) {
    trace += what + "@" + std::to_string(scheduler.NowMs()) + " ";
  }

  // Starts a thread that runs the body with its name.
  void Start(char name, const std::function<void(std::string)>& body) {
    const std::string text(1, name);
    scheduler.Spawn(text, ThreadOwner::Machine, false,
                    [text, body]() -> std::uint32_t { return body(text), 0; });
  }

  Scheduler scheduler;
  std::string trace;
};

// Never destroyed: threads that have ended may still be on their way out of it.
World& NewWorld(std::uint64_t seed, bool fibers) {
  static std::vector<World*>& kept = *new std::vector<World*>;
  return *kept.emplace_back(new World{Scheduler({.seed = seed, .fibers = fibers}), {}});
}

std::string TraceOf(std::uint64_t seed, bool fibers, const std::function<void(World&)>& script) {
  World& world = NewWorld(seed, fibers);
  std::thread([&] {
    world.scheduler.AttachCurrentThread("script", ThreadOwner::Machine);
    script(world);
  }).join();
  return world.trace;
}

// What is noted while the script runs as the first thread of a world, whatever its threads are.
std::string TraceOf(std::uint64_t seed, const std::function<void(World&)>& script) {
  const std::string trace = TraceOf(seed, false, script);
  EXPECT_EQ(TraceOf(seed, platform::FibersWork, script), trace);
  return trace;
}

TEST(SchedulerTest, TimeJumpsToTheNextDeadlineAndEqualOnesFireInTheOrderAsked) {
  const std::string trace = TraceOf(0, [](World& world) {
    char name = 'a';
    for (const std::uint64_t delay : {30, 10, 20, 10, 30}) {
      world.Start(name++, [&world, delay](const std::string& self) {
        world.scheduler.SleepMs(delay);
        world.Note(self);
      });
    }
    world.scheduler.SleepMs(30);  // asked for before any thread has asked
    world.Note("script");
    world.scheduler.SleepMs(1'000'000'000'000);
    world.Note("script");
  });
  EXPECT_EQ(trace, "b@10 d@10 c@20 script@30 a@30 e@30 script@1000000000030 ");
}

TEST(SchedulerTest, ASeedChoosesWhoGoesNextAndRepeatsExactly) {
  const auto run = [](std::uint64_t seed) {
    return TraceOf(seed, [](World& world) {
      for (const char name : {'a', 'b', 'c'}) {
        world.Start(name, [&world](const std::string& self) {
          for (int i = 0; i < 6; ++i) {
            world.trace += self;
            world.scheduler.Checkpoint();
          }
        });
      }
      world.scheduler.SleepMs(1);
    });
  };
  EXPECT_EQ(run(0), "aaaaaabbbbbbcccccc");
  std::set<std::string> traces;
  for (std::uint64_t seed = 1; seed <= 8; ++seed) {
    const std::string trace = run(seed);
    EXPECT_EQ(run(seed), trace) << "seed " << seed;
    EXPECT_TRUE(std::is_permutation(trace.begin(), trace.end(), "aaaaaabbbbbbcccccc")) << trace;
    traces.insert(trace);
  }
  EXPECT_GE(traces.size(), 6u);
}

// The host process ends; its standard error tells why, and what every thread was doing.
TEST(SchedulerDeathTest, ARunThatCannotGoOnEndsTheProcess) {
  const auto run = [](bool spins) {
    Scheduler& scheduler = NewWorld(0, false).scheduler;
    scheduler.AttachCurrentThread("script", ThreadOwner::Machine);
    scheduler.SleepMs(7);
    while (spins) {
      scheduler.Yield();
    }
    scheduler.WaitUntil([] { return false; }, NoDeadline);
  };
  EXPECT_EXIT(run(false), testing::ExitedWithCode(3),
              "^no thread can run.* at 7 ms:.*script \\(1000\\) waiting");
  EXPECT_EXIT(run(true), testing::ExitedWithCode(3), "time stands still");
}

}  // namespace
