#include "service/update_decision.h"

#include <windows.h>

#include "common/debug_output.h"
#include "common/firmware_version.h"
#include "common/mutex_guard.h"
#include "common/process_mutex.h"
#include "common/update_lock.h"
#include "dfudevice/dfu_device_list.h"
#include "dfuengine/update_session.h"
#include "dfufile/image_preparation.h"
#include "keyboard/enter_dfu.h"
#include "keyboard/keyboard_departure.h"
#include "keyboard/keyboard_version.h"
#include "notifier/notifier_launch.h"
#include "notifier/notifier_message.h"
#include "service/package_location.h"
#include "service/stop_latch.h"
#include "service/update_gates.h"

i32 batteryPercent = 0;

namespace {

// One decision at a time: guards deviceVersion, packageVersion, batteryPercent and keyboardHandle,
// which belong to the decision under way. Taken before the update lock, never while that is held.
constinit ProcessMutex decisionLock;

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
  InterruptedUpdate interrupted;
  if (!ClearWayForUpdate(interrupted)) {
    return;
  }
  if (RefreshDfuDevices() != 0) {
    PrepareTargetImage();
    TellUnlessResumed(interrupted, false);
    return;
  }
  WriteDebugText(TEXT("Refresh1 fail\n"));
  LaunchNotifier(NotifierMessage::Disconnect);
  TellUnlessResumed(interrupted, true);
}

void ReadBattery() {
  SYSTEM_POWER_STATUS power = {};
  batteryPercent =
      GetSystemPowerStatus(&power) ? i32{power.BatteryLifePercent} : BatteryPercentUnknown;
  WriteDebugFormat(TEXT("Battery Percent: %d"), batteryPercent);
}

// The start-up decision serves a keyboard that is in DFU mode already. The look for it and the
// preparation are one hold of the lock, so that nothing comes between the maps that were read and
// their use. True when that was all there is to decide.
bool ServeDfuDevice() {
  const MutexGuard lock(updateLock.Get());
  if (!lock.held()) {
    return true;
  }
  if (RefreshDfuDevices() == 0) {
    return false;
  }
  PrepareUnderLock();
  return true;
}

// Composes its search in packagePath, which a preparation on another thread may be about to open.
bool ReadPackage() {
  const MutexGuard lock(updateLock.Get());
  return lock.held() && ReadPackageVersion() != 0;
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

// Asks gate by gate; the battery is read only once the versions let the update pass.
UpdateGate AskGates() {
  const UpdateGate gate = GateOfVersions(deviceVersion, packageVersion);
  if (gate != UpdateGate::None) {
    return gate;
  }
  ReadBattery();
  return GateOfBattery(batteryPercent);
}

// Returns true when the keyboard is on its way into DFU mode.
bool DecideUpdate(i32 atStartup) {
  const MutexGuard lock(decisionLock.Get());
  if (!lock.held()) {
    return false;
  }
  WaitUntilKeyboardHasLeft();
  if (StopSeen()) {
    return false;
  }
  if (atStartup == 1 && ServeDfuDevice()) {
    return false;
  }

  ReadKeyboardVersion();
  if (!ReadPackage()) {
    return false;
  }
  switch (AskGates()) {
    case UpdateGate::HardwareRevision:
    case UpdateGate::Model:
    case UpdateGate::Version:
      return false;
    case UpdateGate::Battery:
      LaunchNotifier(NotifierMessage::Battery);
      WriteDebugText(TEXT("Battery fail\n"));
      return false;
    case UpdateGate::None:
      break;
  }
  // The reading takes its time; a stop that came meanwhile must not find an update begun.
  return !StopSeen() && StartUpdate();
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
  const MutexGuard lock(updateLock.Get());
  if (lock.held()) {
    PrepareUnderLock();
  }
}
