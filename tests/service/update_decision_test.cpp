// Who gets new firmware, what the user hears of it, and how the update is begun.

#include "service/update_decision.h"

#include <algorithm>

#include "dfuengine/session_values.h"
#include "dfuengine/update_session.h"
#include "keyboard/keyboard_departure.h"
#include "service/package_location.h"
#include "service/stop_latch.h"
#include "tests/support/service_test.h"

namespace {

class UpdateDecisionTest : public ServiceTest {
 protected:
  UpdateDecisionTest() { LogOnUser(); }

  void InstallAndSelect(const std::string& version = "1.2.2.1") {
    machine.drive.Remove(std::string(simulator::FileRepository) + simulator::DefaultPackageFolder);
    InstallHollowPackage(version);
    SelectPackageFolder();
  }

  // One decision about a keyboard that is unplugged afterwards; how many reports came to it.
  u32 DecideAbout(const KeyboardOptions& options, i32 atStartup = 0) {
    LookFromHere();
    simulator::VirtualKeyboard& keyboard = PlugIn(options);
    EvaluateUpdate(atStartup);
    keyboard.Detach();
    NoteKeyboardLeft();
    return keyboard.enterDfuReports();
  }

  // Neither for a keyboard nor for a DFU device.
  void ExpectNothingBegins() {
    PlugInInDfuMode();
    EXPECT_EQ(DecideAbout({}, 1) + DecideAbout({}), 0u);
    PrepareDfuUpdate();
    EXPECT_EQ(Lines(), Texts{});
    EXPECT_EQ(NewWords(), Texts{});
  }
};

TEST_F(UpdateDecisionTest, UpdatesOnlyAMatchingKeyboardWithOlderFirmware) {
  struct Row {
    simulator::KeyboardVersion keyboard;
    const char* package;
    u32 updates;
  };
  const Row rows[] = {
      {{1, 2, 2, 1}, "1.2.2.1", 0}, {{1, 1, 2, 1}, "1.2.2.1", 1}, {{1, 3, 2, 1}, "1.2.2.1", 0},
      {{2, 0, 2, 1}, "1.9.2.1", 0}, {{1, 9, 2, 1}, "2.0.2.1", 1}, {{0, 0, 0, 0}, "0.1.0.0", 1},
      {{1, 0, 3, 1}, "1.2.2.1", 0}, {{1, 0, 2, 2}, "1.2.2.1", 0}, {{1, 0, 2, 1}, "1.x.2.1", 0},
  };
  for (const Row& row : rows) {
    const std::string what = simulator::VersionText(row.keyboard) + " and " + row.package;
    const u64 batteryReadings = TimesCalled(Call::GetSystemPowerStatus);
    InstallAndSelect(row.package);
    KeyboardOptions options;
    options.version = row.keyboard;
    EXPECT_EQ(DecideAbout(options), row.updates) << what;
    EXPECT_EQ(NewWords(), Texts(row.updates, "START")) << what;
    EXPECT_EQ(TimesCalled(Call::GetSystemPowerStatus) - batteryReadings, row.updates) << what;
  }
}

// All of its digits read as zero, which matches a package of model 0 and revision 0.
TEST_F(UpdateDecisionTest, TakesNoKeyboardForOneOfVersionZero) {
  InstallAndSelect("1.2.2.1");
  EvaluateUpdate(0);
  EXPECT_EQ(NewWords(), Texts{});

  InstallAndSelect("1.1.0.0");
  EvaluateUpdate(0);
  EXPECT_EQ(NewWords(), (Texts{"START", "DISCONNECT"}));
  EXPECT_EQ(CountLines("Enter DFU:: fail\n"), 2u);
}

TEST_F(UpdateDecisionTest, NeedsThirtyPercentOfBattery) {
  struct Row {
    BYTE percent;
    bool isReadable;
    i32 stored;
    const char* word;
  };
  const Row rows[] = {
      {0, true, 0, "BATTERY"},   {29, true, 29, "BATTERY"}, {30, true, 30, "START"},
      {100, true, 100, "START"}, {255, true, 255, "START"}, {5, false, 255, "START"},
  };
  InstallAndSelect();
  for (const Row& row : rows) {
    machine.power.SetBatteryPercent(row.percent);
    if (!row.isReadable) {
      FailCall(Call::GetSystemPowerStatus, ERROR_GEN_FAILURE);
    }
    DecideAbout({});
    EXPECT_EQ(NewWords(), Texts{row.word}) << row.stored;
    EXPECT_EQ(batteryPercent, row.stored);
    EXPECT_EQ(CountLines("Battery Percent: " + std::to_string(row.stored)), 1u) << row.stored;
    // The very last line: the user was told before.
    EXPECT_EQ(Lines().back() == "Battery fail\n", row.stored < 30) << row.stored;
  }
}

TEST_F(UpdateDecisionTest, SendsTheReportASecondTimeAtOnce) {
  struct Row {
    u32 refused;
    u32 reports;
    Texts words;
  };
  const Row rows[] = {{0, 1, {"START"}}, {1, 2, {"START"}}, {2, 2, {"START", "DISCONNECT"}}};
  InstallAndSelect();
  for (const Row& row : rows) {
    KeyboardOptions options;
    options.refusedReports = row.refused;
    Watch({Call::CreateProcessAsUserW, Call::HidD_SetOutputReport, Call::Sleep});
    EXPECT_EQ(DecideAbout(options), row.reports);
    EXPECT_EQ(NewWords(), row.words) << row.refused;
    EXPECT_EQ(CountLines("Found Device\n"), row.reports) << row.refused;

    Texts calls(row.reports, "HidD_SetOutputReport");
    calls.insert(calls.begin(), "CreateProcessAsUserW");
    calls.insert(calls.end(), row.words.size() - 1, "CreateProcessAsUserW");
    EXPECT_EQ(Seen(), calls) << row.refused;
  }
}

// Only the start-up decision looks for a DFU device, and waits for one.
TEST_F(UpdateDecisionTest, LeavesADfuDeviceToItsArrivalUnlessAtStartup) {
  InstallAndSelect();
  PlugInInDfuMode();
  for (const i32 atStartup : {0, 2, -1}) {
    EXPECT_EQ(DecideAbout({}, atStartup), 1u) << atStartup;
  }
  EXPECT_EQ(TimesCalled(Call::Sleep) + TimesCalled(Call::WinUsb_Initialize), 0u);
}

TEST_F(UpdateDecisionTest, ServesADfuDeviceAtStartupWhateverItsVersion) {
  machine.power.SetBatteryPercent(5);
  InstallAndSelect();
  PlugInInDfuMode();
  Watch({Call::WinUsb_Initialize, Call::FindFirstFileA, Call::OpenBinaryFile,
         Call::HidD_GetAttributes, Call::GetSystemPowerStatus, Call::Sleep});
  EXPECT_EQ(DecideAbout({}, 1), 0u);
  EXPECT_EQ(Seen(),
            (Texts{"WinUsb_Initialize", "FindFirstFileA", "WinUsb_Initialize", "OpenBinaryFile"}));
  EXPECT_EQ(CountLines("1 Device(s) found : \n"), 2u);
  EXPECT_EQ(NewWords(), Texts{});
}

TEST_F(UpdateDecisionTest, WaitsAtStartupForTheDevice) {
  InstallAndSelect();
  for (const bool comesBack : {true, false}) {
    KeyboardOptions options;
    options.returnsAfterReport = comesBack;
    const u64 before = nowMs();
    Watch({Call::FindFirstFileA, Call::HidD_SetOutputReport, Call::Sleep});
    DecideAbout(options, 1);
    EXPECT_EQ((nowMs() - before) / 100, 50u);
    EXPECT_EQ(Seen(), (Texts{"FindFirstFileA", "HidD_SetOutputReport", "Sleep", "FindFirstFileA"}));
    EXPECT_EQ(CountLines(HollowLine), comesBack ? 1u : 0u);
    EXPECT_EQ(CountLines("Refresh1 fail\n"), comesBack ? 0u : 1u);
    EXPECT_EQ(NewWords(), comesBack ? Texts{"START"} : (Texts{"START", "DISCONNECT"}));
  }
}

TEST_F(UpdateDecisionTest, PreparesNothingWithoutAFile) {
  PlugInInDfuMode();
  disconnectNotified = 1;
  PrepareDfuUpdate();
  EXPECT_EQ(disconnectNotified, 0u);
  EXPECT_EQ(TimesCalled(Call::WinUsb_Initialize), 0u);
  EXPECT_EQ(Lines(), Texts{});
}

TEST_F(UpdateDecisionTest, TellsOfAMissingDeviceWhateverWasTold) {
  InstallAndSelect();
  disconnectNotified = 1;
  Texts linesBefore;
  AtCall(Call::CreateProcessAsUserW, 1, [&] { linesBefore = Lines(); });
  PrepareDfuUpdate();
  EXPECT_EQ(NewWords(), Texts{"DISCONNECT"});
  EXPECT_EQ(std::count(linesBefore.begin(), linesBefore.end(), "Refresh1 fail\n"), 1);
  EXPECT_EQ(disconnectNotified, 0u);
}

TEST_F(UpdateDecisionTest, BeginsNothingAfterAStop) {
  InstallAndSelect();
  AtCall(Call::GetSystemPowerStatus, 1, [] { LatchStop(); });
  EXPECT_EQ(DecideAbout({}), 0u);
  ExpectNothingBegins();
}

TEST_F(UpdateDecisionTest, BeginsNothingWithoutTheLock) {
  InstallAndSelect();
  KeepFailing(Call::CreateMutexW, ERROR_NOT_ENOUGH_MEMORY);
  ExpectNothingBegins();
  StopFailing();

  KeepFailing(Call::WaitForSingleObject, ERROR_INVALID_HANDLE);
  currentOperationId = 5;
  ExpectNothingBegins();
  SessionStep();
  EXPECT_EQ(Lines(), Texts{});
  EXPECT_EQ(currentOperationId, 5u);
}

}  // namespace
