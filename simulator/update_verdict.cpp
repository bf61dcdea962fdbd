#include "simulator/update_verdict.h"

#include <algorithm>
#include <cstdio>

#include "service/update_gates.h"
#include "simulator/dfu_bootloader.h"
#include "simulator/dfu_names.h"
#include "simulator/exit_codes.h"
#include "simulator/package_fit.h"

namespace simulator {

namespace {

// The service's own comparison is asked, in its own record.
FirmwareVersion ServiceVersion(const KeyboardVersion& version) {
  return {version.major, version.minor, version.modelId, version.hwRev};
}

// How many of the bytes no writable sector takes, and the first address of them. Empty when all
// have a place.
std::string DroppedText(const std::vector<DfuSeElement>& elements, const NorFlash& flash) {
  const std::vector<DroppedSpan> spans = DroppedSpans(elements, flash);
  u64 dropped = 0;
  for (const DroppedSpan& span : spans) {
    dropped += span.bytes;
  }
  return dropped == 0 ? ""
                      : CountText(dropped) + " bytes for " +
                            AddressText(static_cast<u32>(spans[0].address)) +
                            " fell outside the keyboard's memory";
}

// Why a keyboard that took the whole package does not run it.
// The service has told the user that it is done, so the reason is one that it cannot see.
std::string WhyNotRunning(const std::vector<DfuSeElement>& elements, const NorFlash& flash) {
  const std::string dropped = DroppedText(elements, flash);
  if (!dropped.empty()) {
    return dropped;
  }
  const std::string overlap = OverlapText(elements);
  return overlap.empty() ? "the keyboard does not run what was written" : overlap;
}

}  // namespace

void DeviceErrors::Note(const platform::TransferRecord& record) {
  const std::scoped_lock hold(lock_);
  const std::optional<WireStatus> status = ReadStatus(record);
  u8 error = status.has_value() ? status->status : u8{dfuOK};
  if (const std::optional<WireWork> work = reader_.Read(record)) {
    address_ = work->address;
    error = record.result == platform::UsbResult::Stalled ? u8{errSTALLEDPKT} : u8{dfuOK};
  }
  if (error != dfuOK && first_.empty()) {
    first_ = NameOfDfuStatus(error) + " at " + AddressText(address_);
  }
}

std::string DeviceErrors::Text() const {
  const std::scoped_lock hold(lock_);
  return first_;
}

UpdateResult JudgeUpdate(const UpdateRunOptions& options, const UpdateEnd& end) {
  if (!end.faultless) {
    return {ExitFailed, "failed: the service misused a call, see the faults"};
  }
  if (end.updated) {
    return {ExitDone, "updated"};
  }
  const std::vector<DfuSeElement>& elements = TargetForUpdate(options.package.contents)->elements;
  const NorFlash flash = MemoryForUpdate(options.keyboard);
  // A keyboard that tells its old version again is updated again, at every arrival.
  if (end.completesTold > 1) {
    return {ExitFailed, "installed over and over: " + WhyNotRunning(elements, flash)};
  }
  const std::string away = end.mode == KeyboardMode::Detached     ? "the keyboard was pulled"
                           : end.mode == KeyboardMode::Restarting ? "the keyboard did not come back"
                                                                  : "";
  if (end.completesTold == 1) {
    if (!away.empty()) {
      return {ExitFailed, "installed, but " + away};
    }
    return {ExitFailed, "installed, but " + WhyNotRunning(elements, flash)};
  }
  if (!end.deviceError.empty()) {
    return {ExitFailed, "failed: the device reported " + end.deviceError};
  }
  if (!away.empty()) {
    return {ExitFailed, "failed: " + away};
  }
  const std::string gate = options.startsInDfuMode
                               ? ""  // it is asked nothing
                               : ClosedGateText(options.keyboard.version, options.package.version,
                                                options.batteryPercent);
  if (end.reportsTaken == 0 && !gate.empty()) {
    return {ExitNothingToDo, gate};
  }
  if (end.serviceEnded) {
    return {ExitFailed, "failed: the service ended in the midst of it"};
  }
  return {ExitFailed, "failed: the update came to no end"};
}

std::string ClosedGateText(const KeyboardVersion& keyboard, const KeyboardVersion& package,
                           u8 batteryPercent) {
  UpdateGate gate = GateOfVersions(ServiceVersion(keyboard), ServiceVersion(package));
  gate = gate == UpdateGate::None ? GateOfBattery(batteryPercent) : gate;
  const auto differs = [](const char* what, u8 has, u8 wants) {
    return std::string("refused: the keyboard's ") + what + " is " + std::to_string(has) +
           ", the package is for " + std::to_string(wants);
  };
  switch (gate) {
    case UpdateGate::HardwareRevision:
      return differs("hardware revision", keyboard.hwRev, package.hwRev);
    case UpdateGate::Model:
      return differs("model", keyboard.modelId, package.modelId);
    case UpdateGate::Version:
      return "up to date (the package is not newer)";
    case UpdateGate::Battery:
      return "refused: battery " + std::to_string(batteryPercent) + " %, " +
             std::to_string(BatteryThresholdPercent) + " % needed";
    case UpdateGate::None:
      break;
  }
  return "";
}

}  // namespace simulator
