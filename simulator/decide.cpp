#include "simulator/decide.h"

#include <atomic>
#include <nlohmann/json.hpp>

#include "keyboard/keyboard_version.h"
#include "platform/machine/text.h"
#include "service/package_location.h"
#include "service/update_decision.h"
#include "service/update_gates.h"
#include "simulator/exit_codes.h"
#include "simulator/host_process.h"
#include "simulator/tablet.h"
#include "simulator/update_verdict.h"
#include "simulator/virtual_keyboard.h"

namespace simulator {

namespace {

// The start-up sequence waits before it decides; all is decided long before that.
constexpr u64 DecidedAfterMs = 60'000;

std::string TextOf(i32 major, i32 minor) {
  return std::to_string(major) + "." + std::to_string(minor);
}

// What the service had read when it ended, gate by gate.
Json DescribeGates(UpdateGate closed) {
  const struct {
    UpdateGate gate;
    const char* name;
    std::string keyboard;
    std::string package;
  } gates[] = {
      {UpdateGate::HardwareRevision, "hardware revision", std::to_string(deviceVersion.hwRev),
       std::to_string(packageVersion.hwRev)},
      {UpdateGate::Model, "model", std::to_string(deviceVersion.modelId),
       std::to_string(packageVersion.modelId)},
      {UpdateGate::Version, "version", TextOf(deviceVersion.major, deviceVersion.minor),
       TextOf(packageVersion.major, packageVersion.minor)},
      {UpdateGate::Battery, "battery", std::to_string(batteryPercent) + " %",
       std::to_string(BatteryThresholdPercent) + " %"},
  };
  Json described = Json::array();
  for (const auto& gate : gates) {
    const bool asked = gate.gate <= closed;
    const bool isBattery = gate.gate == UpdateGate::Battery;
    described.push_back({{"gate", gate.name},
                         {"keyboard", isBattery && !asked ? "" : gate.keyboard},
                         {isBattery ? "needed" : "package", gate.package},
                         {"outcome", gate.gate == closed ? "closed"
                                     : asked             ? "open"
                                                         : "not asked"}});
  }
  return described;
}

Json Decide(const UpdateRunOptions& options, const std::string& driveFolder) {
  SplitConsole(true, false);
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
  tablet.machine().KillServiceProcess();

  UpdateGate closed = GateOfVersions(deviceVersion, packageVersion);
  closed = closed == UpdateGate::None ? GateOfBattery(batteryPercent) : closed;
  const std::vector<ToldWord> toldWords = tablet.WordsTold();
  const std::string word = toldWords.empty() ? "" : toldWords[0].word;
  const std::string gate =
      ClosedGateText(options.keyboard.version, options.package.version, options.batteryPercent);
  return {{"exitCode", word == "START" ? ExitDone : ExitNothingToDo},
          {"file", options.package.fileName},
          {"gates", DescribeGates(closed)},
          {"word", word},
          {"result", word == "START" ? "would update" : gate}};
}

}  // namespace

Json DecideUpdate(const UpdateRunOptions& options) {
  return AskChild([&](const std::string& driveFolder) { return Decide(options, driveFolder); });
}

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
