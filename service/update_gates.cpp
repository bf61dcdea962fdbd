#include "service/update_gates.h"

namespace {

bool IsNewer(const FirmwareVersion& package, const FirmwareVersion& device) {
  if (device.major != package.major) {
    return device.major < package.major;
  }
  return device.minor < package.minor;
}

}  // namespace

UpdateGate GateOfVersions(const FirmwareVersion& device, const FirmwareVersion& package) {
  if (device.hwRev != package.hwRev) {
    return UpdateGate::HardwareRevision;
  }
  if (device.modelId != package.modelId) {
    return UpdateGate::Model;
  }
  return IsNewer(package, device) ? UpdateGate::None : UpdateGate::Version;
}

UpdateGate GateOfBattery(i32 percent) {
  return percent < BatteryThresholdPercent ? UpdateGate::Battery : UpdateGate::None;
}
