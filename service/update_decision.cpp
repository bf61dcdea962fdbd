#include "service/update_decision.h"

#include <windows.h>

#include "common/debug_output.h"
#include "common/firmware_version.h"
#include "common/update_lock.h"
#include "dfudevice/dfu_device_list.h"
#include "dfuengine/update_session.h"
#include "dfufile/image_preparation.h"
#include "keyboard/enter_dfu.h"
#include "keyboard/keyboard_version.h"
#include "notifier/notifier_launch.h"
#include "notifier/notifier_message.h"
#include "service/package_location.h"
#include "service/stop_latch.h"

i32 batteryPercent = 0;

namespace {

constexpr i32 BatteryThresholdPercent = 30;

// The platform's own value for a charge that it does not know. It counts as enough.
constexpr i32 BatteryPercentUnknown = 255;

// How long the keyboard gets at start-up to come back as a DFU device.
constexpr DWORD DfuArrivalDelayMs = 5000;

void PrepareUnderLock() {
  // An erase that is launched while the process ends would leave a keyboard without firmware.
  if (StopSeen()) {
    return;
  }

  disconnectNotified = 0;
  if (FindPackageDfuFile() == 0) {
    return;
  }
  // Before the refresh: a device that a running operation holds may refuse a second open, and the
  // refresh replaces the memory maps. After the file: a missing one must not end an operation.
  if (!ClearWayForUpdate()) {
    return;
  }
  if (RefreshDfuDevices() != 0) {
    PrepareTargetImage();
    return;
  }
  WriteDebugText(TEXT("Refresh1 fail\n"));
  LaunchNotifier(NotifierMessage::Disconnect);
}

bool PackageFitsKeyboard() {
  return deviceVersion.hwRev == packageVersion.hwRev &&
         deviceVersion.modelId == packageVersion.modelId;
}

bool PackageIsNewer() {
  if (deviceVersion.major != packageVersion.major) {
    return deviceVersion.major < packageVersion.major;
  }
  return deviceVersion.minor < packageVersion.minor;
}

void ReadBattery() {
  SYSTEM_POWER_STATUS power = {};
  batteryPercent =
      GetSystemPowerStatus(&power) ? i32{power.BatteryLifePercent} : BatteryPercentUnknown;
  WriteDebugFormat(TEXT("Battery Percent: %d"), batteryPercent);
}

// Tells the user and asks the keyboard to restart in DFU mode, at once a second time when the first
// request fails. Returns whether the keyboard took it.
bool StartUpdate() {
  LaunchNotifier(NotifierMessage::Start);
  if (EnterDfuMode() != 0 || EnterDfuMode() != 0) {
    return true;
  }
  LaunchNotifier(NotifierMessage::Disconnect);
  return false;
}

// Everything of the decision that runs under the lock. Returns true when the keyboard is on its way
// into DFU mode.
bool DecideUnderLock(i32 atStartup) {
  if (StopSeen()) {
    return false;
  }
  if (atStartup == 1 && RefreshDfuDevices() != 0) {
    PrepareUnderLock();
    return false;
  }

  ReadKeyboardVersion();
  if (ReadPackageVersion() == 0) {
    return false;
  }
  if (!PackageFitsKeyboard() || !PackageIsNewer()) {
    return false;
  }

  ReadBattery();
  if (batteryPercent < BatteryThresholdPercent) {
    LaunchNotifier(NotifierMessage::Battery);
    WriteDebugText(TEXT("Battery fail\n"));
    return false;
  }
  // The reading above takes its time; a stop that came meanwhile must not find an update begun.
  return !StopSeen() && StartUpdate();
}

bool DecideUpdate(i32 atStartup) {
  const UpdateLock lock;
  return lock.held() && DecideUnderLock(atStartup);
}

}  // namespace

void EvaluateUpdate(i32 atStartup) {
  const bool enteringDfuMode = DecideUpdate(atStartup);
  if (!enteringDfuMode || atStartup != 1) {
    return;
  }

  Sleep(DfuArrivalDelayMs);
  PrepareDfuUpdate();
}

void PrepareDfuUpdate() {
  const UpdateLock lock;
  if (lock.held()) {
    PrepareUnderLock();
  }
}
