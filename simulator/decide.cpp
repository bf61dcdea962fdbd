#include "simulator/decide.h"

#include <atomic>
#include <nlohmann/json.hpp>

#include "platform/machine/machine.h"
#include "simulator/ask_child.h"
#include "simulator/exit_codes.h"
#include "simulator/gates.h"
#include "simulator/host_process.h"
#include "simulator/tablet.h"
#include "simulator/update_verdict.h"
#include "simulator/virtual_keyboard.h"

namespace simulator {

namespace {

// The start-up sequence waits before it decides; all is decided long before that.
constexpr u64 DecidedAfterMs = 60'000;

Json Decide(const UpdateRunOptions& options, const std::string& driveFolder) {
  SilenceStandardOutput();
  Tablet tablet({.scheduler = {}, .driveFolder = driveFolder});
  auto& keyboard = *new VirtualKeyboard(tablet.machine(), KeyboardFor(options));
  tablet.InstallPackage(options.package.fileName, options.package.bytes);
  if (options.userLoggedOn) {
    tablet.LogOnUser();
  }
  tablet.machine().power.SetBatteryPercent(options.batteryPercent);
  std::atomic<bool> told = false;
  const platform::Observation words = tablet.machine().processes.launches.Observe(
      [&](const platform::LaunchedProcess&) { told = true; });
  FillFlash(options, keyboard);
  keyboard.Attach();
  tablet.StartService();
  tablet.PassTimeUntil([&] { return told.load(); }, DecidedAfterMs);
  // At the first word: what comes behind it would be an update. A keyboard that needs none brings
  // no word, and the time runs out.
  tablet.machine().KillServiceProcess();

  const std::vector<ToldWord> toldWords = tablet.WordsTold();
  const std::string word = toldWords.empty() ? "" : toldWords[0].word;
  const std::string gate =
      ClosedGateText(options.keyboard.version, options.package.version, options.batteryPercent);
  return {{"exitCode", word == "START" ? ExitDone : ExitNothingToDo},
          {"file", options.package.fileName},
          {"gates", DescribeGates()},
          {"word", word},
          {"result", word == "START" ? "would update" : gate}};
}

}  // namespace

Json DecideUpdate(const UpdateRunOptions& options) {
  return AskChild([&](const std::string& driveFolder) { return Decide(options, driveFolder); });
}

// In columns: what counts is which two values stand beside each other.
void PrintDecision(const Json& decision, std::FILE* out) {
  std::fprintf(out, "package %s\n", decision["file"].get<std::string>().c_str());
  for (const Json& gate : decision["gates"]) {
    const bool isBattery = gate.contains("needed");
    std::fprintf(out, "  %-18s %-6s %s %-6s %s\n", gate["gate"].get<std::string>().c_str(),
                 gate["keyboard"].get<std::string>().c_str(), isBattery ? "needed " : "package",
                 gate[isBattery ? "needed" : "package"].get<std::string>().c_str(),
                 gate["outcome"].get<std::string>().c_str());
  }
  const std::string word = decision["word"];
  std::fprintf(out, "result   %s; the user would be told %s\n",
               decision["result"].get<std::string>().c_str(),
               word.empty() ? "nothing" : word.c_str());
}

}  // namespace simulator
