#include "proof/trace.h"

#include <unistd.h>

#include "proof/plan_text.h"

namespace proof {

namespace {

// At the left margin in capitals, so that it can be found among thousands of lines.
void TellViolation(const std::string& violation) {
  std::fprintf(stderr, "VIOLATION %s\n", violation.c_str());
}

// The time of a timeline's line; of another line that of the one before.
u64 TimeOfLine(const char* line, u64 before) {
  double seconds = 0;
  char unit[2] = {};
  if (std::sscanf(line, "%lf %1[s]", &seconds, unit) != 2) {
    return before;
  }
  return static_cast<u64>(seconds * 1000 + 0.5);
}

}  // namespace

// The file has no name on the host, so it is gone with the process.
Trace::Trace(const TrialPlan& plan) {
  if (!plan.trace) {
    return;
  }
  std::fprintf(stderr, "%s\n", PlanText(plan).c_str());
  file_ = std::tmpfile();
}

Trace::~Trace() {
  if (file_ != nullptr) {
    std::fclose(file_);
  }
}

// Both are in the order of time. What has no time, or one behind the last line, comes at the end.
void Trace::TellLife(u32 number, const std::vector<std::string>& violations) {
  if (file_ == nullptr) {
    return;
  }
  std::fprintf(stderr, "-- life %u of the service\n", number);
  std::rewind(file_);
  auto violation = violations.begin();
  u64 timeMs = 0;
  char line[1024];
  while (std::fgets(line, sizeof(line), file_) != nullptr) {
    timeMs = TimeOfLine(line, timeMs);
    for (; violation != violations.end() && TimeOfViolation(*violation) < timeMs; ++violation) {
      TellViolation(*violation);
    }
    std::fputs(line, stderr);
  }
  for (; violation != violations.end(); ++violation) {
    TellViolation(*violation);
  }
  std::rewind(file_);
  [[maybe_unused]] const int emptied = ftruncate(fileno(file_), 0);
}

}  // namespace proof
