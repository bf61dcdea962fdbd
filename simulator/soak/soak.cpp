#include "simulator/soak/soak.h"

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "simulator/soak/draw.h"

namespace simulator {

namespace {

// What a job's trials came to, or all jobs' together.
struct Totals {
  u64 runs = 0;
  u64 failed = 0;
  u64 lives = 0;
  u64 virtualMs = 0;
  u64 platformCalls = 0;
  std::map<std::string, u64> troubles;
  std::map<std::string, u64> words;
};

// A trial's report as lines that a job hands to the parent through a pipe.
std::string Encode(u64 seed, const TrialReport& report) {
  std::ostringstream text;
  text << "R " << seed << ' ' << report.lives << ' ' << report.virtualMs << ' '
       << report.platformCalls << ' ' << report.violations.size() << '\n';
  for (const auto& [trouble, count] : report.troubles) {
    text << "T " << count << ' ' << trouble << '\n';
  }
  for (const auto& [word, count] : report.words) {
    text << "W " << count << ' ' << word << '\n';
  }
  for (const std::string& violation : report.violations) {
    text << "V " << seed << ' ' << violation << '\n';
  }
  return text.str();
}

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

void RunJob(const SoakOptions& options, u32 job, std::FILE* results) {
  if (!options.parallel) {
    TakeProcessor(job);
  }
  std::string folder = (std::filesystem::temp_directory_path() / "vantrel-soak-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) {
    std::fprintf(stderr, "vantrel-sim: cannot make a folder for the runs\n");
    return;
  }
  for (u64 run = job; run < options.runs; run += options.jobs) {
    const u64 seed = options.firstSeed + run;
    TrialPlan plan = DrawTrial(seed);
    plan.trace = options.trace;
    if (options.parallel) {
      plan.scheduler.mode = platform::SchedulerMode::Parallel;
    }
    const TrialReport report = RunTrial(plan, folder);
    std::fputs(Encode(seed, report).c_str(), results);
    std::fflush(results);
  }
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
}

void Decode(const std::string& line, Totals& totals, std::FILE* stream) {
  std::istringstream text(line);
  char kind = 0;
  u64 first = 0;
  text >> kind >> first;
  if (kind == 'R') {
    u64 lives = 0, virtualMs = 0, calls = 0, violations = 0;
    text >> lives >> virtualMs >> calls >> violations;
    ++totals.runs;
    totals.lives += lives;
    totals.virtualMs += virtualMs;
    totals.platformCalls += calls;
    totals.failed += violations == 0 ? 0 : 1;
    return;
  }
  std::string rest;
  std::getline(text >> std::ws, rest);
  if (kind == 'V') {
    std::fprintf(stream,
                 "FAILED: %s   (vantrel-sim soak --seed %" PRIu64 " --runs 1 --trace all)\n",
                 rest.c_str(), first);
  } else {
    (kind == 'T' ? totals.troubles : totals.words)[rest] += first;
  }
}

void WriteCounts(const char* title, const std::map<std::string, u64>& counts, std::FILE* stream) {
  std::fprintf(stream, "%s\n", title);
  for (const auto& [name, count] : counts) {
    std::fprintf(stream, "  %10" PRIu64 "  %s\n", count, name.c_str());
  }
}

void WriteSummary(const Totals& totals, std::FILE* stream) {
  std::fprintf(stream,
               "%" PRIu64 " runs, %" PRIu64 " failed; %" PRIu64
               " lives of the service, %.1f virtual "
               "hours, %" PRIu64 " platform calls\n",
               totals.runs, totals.failed, totals.lives,
               static_cast<double>(totals.virtualMs) / 3'600'000, totals.platformCalls);
  WriteCounts("what happened", totals.troubles, stream);
  WriteCounts("words told to the user", totals.words, stream);
}

}  // namespace

bool RunSoak(const SoakOptions& options, std::FILE* stream) {
  int ends[2];
  if (pipe(ends) != 0) {
    return false;
  }
  std::fflush(nullptr);
  std::vector<pid_t> children;
  for (u32 job = 0; job < options.jobs; ++job) {
    const pid_t child = fork();
    if (child == 0) {
      close(ends[0]);
      RunJob(options, job, fdopen(ends[1], "w"));
      _exit(0);
    }
    children.push_back(child);
  }
  close(ends[1]);

  // Lines are shorter than what a pipe takes at once, so those of the jobs do not mix.
  Totals totals;
  std::FILE* const results = fdopen(ends[0], "r");
  char line[4096];
  while (std::fgets(line, sizeof(line), results) != nullptr) {
    Decode(line, totals, stream);
  }
  std::fclose(results);
  for (const pid_t child : children) {
    waitpid(child, nullptr, 0);
  }
  WriteSummary(totals, stream);
  return totals.failed == 0 && totals.runs == options.runs;
}

}  // namespace simulator
