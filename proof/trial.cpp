#include "proof/trial.h"

#include <sys/resource.h>

#include <algorithm>

#include "proof/life.h"
#include "proof/trace.h"
#include "proof/trial_report.h"
#include "simulator/host_process.h"

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

// Why the process of a life did not get to its end.
std::string EarlyEndText(const LifePage& page, const std::string& end) {
  const std::string time = At(page.lastCallMs);
  if (*page.stuck != '\0') {
    return time + page.stuck;
  }
  return time + "expected the service to live, found its process " + (end.empty() ? "ended" : end) +
         " after call " + std::to_string(page.calls) + ", " + platform::NameOf(page.lastCall);
}

// Runs one life in a child process and reads what it tells. False when it did not get to its end. A
// life that ended early has told nothing but what stood in its page by then.
bool RunLife(const TrialPlan& plan, const std::string& driveFolder, const Carried& carried,
             bool troubled, const Trace& trace, TrialReport& told) {
  LifePage& page = SharedPage();
  page.Empty();
  const std::string end = RunInChild([&] {
    LimitProcessorTime();
    SilenceStandardOutput();
    // Never destroyed: threads of the service may still stand in its calls.
    (new Life(plan, driveFolder, carried, troubled, page, trace.file()))->Run();
  });
  const bool concluded = end.empty() && page.concluded;
  told = ReadReport(concluded ? page.text : page.violationsSoFar);
  std::stable_sort(told.violations.begin(), told.violations.end(),
                   [](const std::string& a, const std::string& b) {
                     return TimeOfViolation(a) < TimeOfViolation(b);
                   });
  if (!concluded) {
    told.platformCalls = page.calls;
    told.virtualMs = page.lastCallMs;
    told.earlyEnd = EarlyEndText(page, end);
    told.violations.push_back(told.earlyEnd);
  }
  return concluded;
}

// Adds what a life told to the trial's report. Places to disturb are those of the first life, the
// only one with troubles.
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
  report.keyboard = life.keyboard;
  report.earlyEnd = life.earlyEnd;
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

// Another life follows while the keyboard is not updated, when the service ended or when only its
// new start can help.
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
          At(life.virtualMs) + "expected firmware " + VersionText(plan.package.version) +
          " in the keyboard that was plugged in anew, found " + life.keyboard);
      break;
    }
    ++report.troubles["new start of the service"];
    carried.any = true;
    carried.mode = page.mode;
    carried.flash.assign(page.flash, page.flash + page.flashBytes);
  }
  if (plan.expectsUpdate && !report.updated && report.violations.empty()) {
    report.violations.push_back(At(report.virtualMs) + "expected firmware " +
                                VersionText(plan.package.version) +
                                " in the keyboard after all lives, found " + report.keyboard);
  }
  return report;
}

}  // namespace proof
