#include "simulator/gates.h"

#include <nlohmann/json.hpp>
#include <string>

#include "keyboard/keyboard_version.h"
#include "service/package_location.h"
#include "service/update_decision.h"
#include "service/update_gates.h"

namespace simulator {

namespace {

// Both numbers count together: 1.9 is older than 2.0.
std::string TextOf(i32 major, i32 minor) {
  return std::to_string(major) + "." + std::to_string(minor);
}

}  // namespace

Json DescribeGates() {
  UpdateGate closed = GateOfVersions(deviceVersion, packageVersion);
  closed = closed == UpdateGate::None ? GateOfBattery(batteryPercent) : closed;
  // The order is that of the service, and what comes behind a closed gate was never asked.
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

}  // namespace simulator
