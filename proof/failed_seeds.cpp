#include "proof/failed_seeds.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>

namespace proof {

namespace {

// Lines for seeds while a soak runs: of one kind of violation, and in all.
constexpr std::size_t MostOfKind = 2;
constexpr u32 MostWritten = 6;

// At the end: kinds that get a line of their own, and the seeds that such a line names.
constexpr std::size_t MostKinds = 6;
constexpr std::size_t MostNamed = 8;

using Seeds = std::vector<u64>;

void WriteSeeds(const Seeds& seeds, std::FILE* stream) {
  const std::size_t named = std::min(seeds.size(), MostNamed);
  std::fputs(" ", stream);
  for (std::size_t i = 0; i < named; ++i) {
    std::fprintf(stream, " %" PRIu64, seeds[i]);
  }
  if (seeds.size() > named) {
    std::fprintf(stream, " and %zu more", seeds.size() - named);
  }
  std::fputs("\n", stream);
}

// A line for each group, but for more groups than help.
void WriteGroups(const std::vector<Seeds>& groups, std::FILE* stream) {
  const std::size_t written = std::min(groups.size(), MostKinds);
  for (std::size_t i = 0; i < written; ++i) {
    WriteSeeds(groups[i], stream);
  }
  std::size_t others = 0;
  for (std::size_t i = written; i < groups.size(); ++i) {
    others += groups[i].size();
  }
  if (others != 0) {
    std::fprintf(stream, "  and %zu seeds of %zu more kinds\n", others, groups.size() - written);
  }
}

}  // namespace

void WriteFailure(const std::string& name, const TrialReport& report, std::FILE* stream) {
  std::fprintf(stream, "%s FAILED: %s", name.c_str(), report.violations.front().c_str());
  if (report.violations.size() > 1) {
    std::fprintf(stream, " (and %zu more)", report.violations.size() - 1);
  }
  std::fputs("\n", stream);
  // What ended the life counts as much as what was wrong first, which may have led to it.
  if (!report.earlyEnd.empty() && report.earlyEnd != report.violations.front()) {
    std::fprintf(stream, "  and in the end %s\n", report.earlyEnd.c_str());
  }
}

void FailedSeeds::Add(u64 seed, const TrialReport& report) {
  std::vector<u64>& seeds = ofKind_[KindOfViolation(report.violations.front())];
  seeds.push_back(seed);
  if (seeds.size() <= MostOfKind && written_ < MostWritten) {
    ++written_;
    WriteFailure("seed " + std::to_string(seed), report, stream_);
  }
}

void FailedSeeds::WriteAll() const {
  std::vector<Seeds> groups;
  for (const auto& [kind, seeds] : ofKind_) {
    groups.push_back(seeds);
    std::sort(groups.back().begin(), groups.back().end());
  }
  if (groups.empty()) {
    return;
  }
  std::sort(groups.begin(), groups.end());
  std::fputs("failed seeds (all of them: --json), each line of one kind of first violation:\n",
             stream_);
  WriteGroups(groups, stream_);
  const u64 first = groups.front().front();
  std::fprintf(stream_,
               "replay the first: %s --seed %" PRIu64
               " --runs 1 --trace all\nmake it smaller:  %s --seed %" PRIu64 " --shrink\n",
               program_invocation_name, first, program_invocation_name, first);
}

}  // namespace proof
