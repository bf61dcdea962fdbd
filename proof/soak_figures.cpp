#include "proof/soak_figures.h"

#include <cinttypes>
#include <nlohmann/json.hpp>

namespace proof {

namespace {

void AddCounts(const std::map<std::string, u64>& counts, std::map<std::string, u64>& sum) {
  for (const auto& [name, count] : counts) {
    sum[name] += count;
  }
}

void WriteCounts(const char* title, const std::map<std::string, u64>& counts, std::FILE* stream) {
  std::fprintf(stream, "%s\n", title);
  for (const auto& [name, count] : counts) {
    std::fprintf(stream, "  %10" PRIu64 "  %s\n", count, name.c_str());
  }
}

}  // namespace

// Seeds come in the order in which their trials end.
void SoakFigures::Add(u64 seed, const TrialReport& report) {
  ++runs;
  lives += report.lives;
  virtualMs += report.virtualMs;
  platformCalls += report.platformCalls;
  if (!report.violations.empty()) {
    failedSeeds.push_back(seed);
  }
  AddCounts(report.troubles, troubles);
  AddCounts(report.words, words);
}

void WriteFigures(const SoakFigures& figures, std::FILE* stream) {
  std::fprintf(stream,
               "%" PRIu64 " runs, %zu failed; %" PRIu64
               " lives of the service, %.1f virtual "
               "hours, %" PRIu64 " platform calls\n",
               figures.runs, figures.failedSeeds.size(), figures.lives,
               static_cast<double>(figures.virtualMs) / 3'600'000, figures.platformCalls);
  if (figures.failedSeeds.empty()) {
    WriteCounts("what happened", figures.troubles, stream);
    WriteCounts("words told to the user", figures.words, stream);
  }
}

// Only what can be added up: no rates and no times of the host.
std::string FiguresJson(const SoakFigures& figures) {
  const nlohmann::ordered_json json = {
      {"runs", figures.runs},
      {"failed", figures.failedSeeds.size()},
      {"lives", figures.lives},
      {"virtualMs", figures.virtualMs},
      {"platformCalls", figures.platformCalls},
      {"failedSeeds", figures.failedSeeds},
      {"troubles", figures.troubles},
      {"words", figures.words},
  };
  return json.dump();
}

}  // namespace proof
