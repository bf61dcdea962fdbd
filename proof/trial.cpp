#include "proof/trial.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "proof/life.h"
#include "proof/trace.h"
#include "simulator/host_process.h"
#include "simulator/timeline.h"

namespace proof {

namespace {

constexpr u32 MostLives = 4;

// A life takes milliseconds of a processor, and far less than a second with a sanitizer.
constexpr rlim_t MostProcessorSeconds = 10;

// A loop without an end in the service kills its process, and nobody waits for it.
void LimitProcessorTime() {
  const rlimit limit = {MostProcessorSeconds, RLIM_INFINITY};
  setrlimit(RLIMIT_CPU, &limit);
}

// The page that lives share with the trial. One a host process is enough.
LifePage& SharedPage() {
  static LifePage& page = MakeShared<LifePage>();
  return page;
}

// What is known of a life whose process did not get to its end.
std::string CrashText(const LifePage& page, const std::string& end) {
  return "at " + SecondsText(page.lastCallMs) +
         ": expected the service to live, found its process " + end + " after call " +
         std::to_string(page.calls) + ", " + platform::NameOf(page.lastCall);
}

// Runs one life in a child process and reads what it tells. False when it did not get to its end.
bool RunLife(const TrialPlan& plan, const std::string& driveFolder, const Carried& carried,
             bool troubled, const Trace& trace, TrialReport& told) {
  LifePage& page = SharedPage();
  std::memset(static_cast<void*>(&page), 0, offsetof(LifePage, text) + 1);
  const std::string end = RunInChild([&] {
    LimitProcessorTime();
    SilenceStandardOutput();
    // Never destroyed: threads of the service may still stand in its calls.
    (new Life(plan, driveFolder, carried, troubled, page, trace.file()))->Run();
  });
  told = ReadReport(page.text);
  std::stable_sort(told.violations.begin(), told.violations.end(),
                   [](const std::string& a, const std::string& b) {
                     return TimeOfViolation(a) < TimeOfViolation(b);
                   });
  if (end.empty() && page.concluded) {
    return true;
  }
  if (told.violations.empty()) {
    told.violations.push_back(CrashText(page, end.empty() ? "ended" : end));
  }
  return false;
}

// Adds what a life told to the trial's report.
void Add(const TrialReport& life, bool troubled, TrialReport& report) {
  if (troubled) {
    report.platformCalls = life.platformCalls;
    report.troubledCalls = life.troubledCalls;
    report.troubledTransfers = life.troubledTransfers;
    report.troubledMemoryRequests = life.troubledMemoryRequests;
    report.lastBlockTransfer = life.lastBlockTransfer;
  }
  ++report.lives;
  report.updated = life.updated;
  report.virtualMs += life.virtualMs;
  report.violations.insert(report.violations.end(), life.violations.begin(), life.violations.end());
  for (const auto& [trouble, count] : life.troubles) {
    report.troubles[trouble] += count;
  }
  for (const auto& [word, count] : life.words) {
    report.words[word] += count;
  }
}

}  // namespace

TrialReport RunTrial(const TrialPlan& plan, const std::string& driveFolder) {
  TrialReport report;
  Trace trace(plan);
  Carried carried;
  for (u32 number = 0; number < MostLives; ++number) {
    const bool troubled = number == 0;
    TrialReport life;
    const bool concluded = RunLife(plan, driveFolder, carried, troubled, trace, life);
    Add(life, troubled, report);
    trace.TellLife(report.lives, life.violations);
    if (!concluded || life.updated || !plan.expectsUpdate || !report.violations.empty()) {
      break;
    }
    const LifePage& page = SharedPage();
    if (!page.processEnded && !(troubled && MayNeedNewStart(plan))) {
      report.violations.push_back(
          "expected an update of the keyboard that was plugged in anew, found none");
      break;
    }
    ++report.troubles["new start of the service"];
    carried.any = true;
    carried.mode = page.mode;
    carried.flash.assign(page.flash, page.flash + page.flashBytes);
  }
  if (plan.expectsUpdate && !report.updated && report.violations.empty()) {
    report.violations.push_back("expected an update of the keyboard in the end, found none");
  }
  return report;
}

}  // namespace proof
