// The questions that decide whether a keyboard gets new firmware, apart from how they are asked.
//
// No state and no calls: the update decision asks with what it has read, and so may whoever wants
// to know beforehand what it would decide.
#pragma once

#include "common/firmware_version.h"
#include "common/types.h"

// With less the update is refused. 255, a charge that is not known, is not less.
inline constexpr i32 BatteryThresholdPercent = 30;

// What stands in the way of an update, in the order in which the decision asks.
enum class UpdateGate {
  HardwareRevision,  // the package is for another one
  Model,             // likewise
  Version,           // the package is not newer than what the keyboard runs
  Battery,           // it holds too little
  None,
};

// The first gate that the two versions close; None when only the battery is still to be asked.
// Revision and model must be equal, then the major version decides, and between equal ones the
// minor version.
UpdateGate GateOfVersions(const FirmwareVersion& device, const FirmwareVersion& package);

// Battery or None.
UpdateGate GateOfBattery(i32 percent);
