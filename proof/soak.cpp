#include "proof/soak.h"

#include <malloc.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "proof/draw.h"
#include "proof/failed_seeds.h"
#include "proof/plan_text.h"
#include "proof/progress_line.h"
#include "proof/shrink.h"
#include "proof/trial.h"
#include "simulator/host_folder.h"
#include "simulator/host_process.h"

namespace proof {

namespace {

// The lives of a run stay on the processor that they begin on; without this, those of two jobs may
// crowd on one and leave the other idle.
void TakeProcessor(u32 job) {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0) {
    return;
  }
  int skip = static_cast<int>(job) % std::max(1, CPU_COUNT(&allowed));
  for (std::size_t processor = 0; processor < CPU_SETSIZE; ++processor) {
    if (CPU_ISSET(processor, &allowed) && skip-- == 0) {
      cpu_set_t only;
      CPU_ZERO(&only);
      CPU_SET(processor, &only);
      sched_setaffinity(0, sizeof(only), &only);
      return;
    }
  }
}

// Every life is a process that takes its memory anew. Left alone, the host's allocator maps each
// copy of a flash by itself and gives each thread an arena, and the host clears all those pages: a
// quarter of a run. Of a run's threads one goes at a time, so that they can share what there is.
void KeepMemoryTogether() {
  constexpr int Most = 32 << 20;  // more is refused
  mallopt(M_MMAP_THRESHOLD, Most);
  mallopt(M_TRIM_THRESHOLD, Most);
  mallopt(M_TOP_PAD, 1 << 20);
  mallopt(M_ARENA_MAX, 1);
}

TrialPlan PlanFor(u64 seed, const SoakOptions& options) {
  TrialPlan plan = DrawTrial(seed);
  plan.trace = options.trace;
  plan.parallel = options.parallel;
  return plan;
}

// Sends a message for each trial: its seed, and behind a line's end its report. Ends early when
// nobody listens any more. Every jobs-th seed is its own, so that no two jobs need to talk.
void RunJob(const SoakOptions& options, u32 job, int results) try {
  if (!options.parallel) {
    TakeProcessor(job);
    KeepMemoryTogether();
  }
  const simulator::HostFolder folder;
  for (u64 run = job; run < options.runs; run += options.jobs) {
    const u64 seed = options.firstSeed + run;
    const std::string message =
        std::to_string(seed) + "\n" + ReportText(RunTrial(PlanFor(seed, options), folder.path()));
    if (send(results, message.data(), message.size(), MSG_NOSIGNAL) < 0) {
      return;
    }
  }
} catch (const std::exception& error) {
  std::fprintf(stderr, "vantrel-soak: %s\n", error.what());
}

// Takes the jobs' messages until the last of them has ended.
void Collect(int results, const SoakOptions& options, std::FILE* stream, SoakFigures& figures,
             FailedSeeds& failed) {
  ProgressLine progress(stream, options.runs);
  std::vector<char> message(1 << 17);
  for (;;) {
    progress.Show(figures.runs, figures.failedSeeds.size());
    const ssize_t bytes = recv(results, message.data(), message.size(), 0);
    if (bytes <= 0) {
      break;
    }
    const std::string text(message.data(), static_cast<std::size_t>(bytes));
    const u64 seed = std::stoull(text);
    const TrialReport report = ReadReport(text.substr(text.find('\n')));
    figures.Add(seed, report);
    if (!report.violations.empty()) {
      progress.Clear();
      failed.Add(seed, report);
      if (options.stopAtFirst) {
        break;
      }
    }
  }
  progress.Clear();
}

// Its name stands where that of a seed would.
TrialPlan PlanOf(const std::string& text) {
  TrialPlan plan;
  std::string reason;
  if (!ReadPlan(text, plan, reason)) {
    throw std::runtime_error("the plan: " + reason);
  }
  plan.name = "plan";
  return plan;
}

}  // namespace

// The jobs end by themselves when nobody listens any more: after a first failure, or when this
// process was killed.
bool RunSoak(const SoakOptions& options, std::FILE* stream, SoakFigures& figures) {
  int ends[2];
  // Keeps messages whole, whichever job they come from.
  if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) {
    return false;
  }
  std::vector<pid_t> children;
  for (u32 job = 0; job < options.jobs; ++job) {
    children.push_back(StartChild([&] {
      close(ends[0]);
      RunJob(options, job, ends[1]);
    }));
  }
  close(ends[1]);
  FailedSeeds failed(stream);
  Collect(ends[0], options, stream, figures, failed);
  close(ends[0]);
  for (const pid_t child : children) {
    if (const std::string end = WaitForChild(child); !end.empty()) {
      std::fprintf(stderr, "vantrel-soak: a job did not get to its end: %s\n", end.c_str());
    }
  }
  std::sort(figures.failedSeeds.begin(), figures.failedSeeds.end());
  WriteFigures(figures, stream);
  failed.WriteAll();
  return figures.failedSeeds.empty() && figures.runs == options.runs;
}

// In this process, with the same lives as in a soak.
bool RunPlan(const std::string& text, const SoakOptions& options, std::FILE* stream) {
  TrialPlan plan = PlanOf(text);
  plan.trace = options.trace;
  plan.parallel = options.parallel;
  const simulator::HostFolder folder;
  const TrialReport report = RunTrial(plan, folder.path());
  if (!report.violations.empty()) {
    WriteFailure(plan.name, report, stream);
    return false;
  }
  std::fputs("the plan kept the promise\n", stream);
  return true;
}

bool ShrinkPlan(const std::string& text, std::FILE* stream) {
  const simulator::HostFolder folder;
  TrialPlan plan = PlanOf(text);
  const std::string violation = Shrink(plan, [&](const TrialPlan& smaller) {
    const TrialReport report = RunTrial(smaller, folder.path());
    return report.violations.empty() ? std::string() : report.violations.front();
  });
  if (violation.empty()) {
    std::fputs("the plan kept the promise: there is nothing to make smaller\n", stream);
    return false;
  }
  plan.name = violation;
  std::fputs(PlanText(plan).c_str(), stream);
  return true;
}

std::string PlanOfSeed(u64 seed) {
  return PlanText(DrawTrial(seed));
}

}  // namespace proof
