// What the keyboard boots, and how it comes and goes.

#include <hidsdi.h>

#include <functional>

#include "tests/support/running_update_test.h"

namespace {

using platform::UsbResult;
using simulator::DefaultFlashAddress;
using simulator::KeyboardMode;
using simulator::NorFlash;

class VirtualKeyboardTest : public RunningUpdateTest {
 protected:
  // "+3@10" when an interface of the third collection came at 10 ms, "-1k@20" when one of the
  // keyboard class left the first at 20 ms.
  std::string ComingAndGoing(u64 sinceMs) const {
    std::string text;
    for (const platform::NoticeEvent& event : machine.notifications.events.All()) {
      const std::u16string& path = event.notice.path;
      const bool isArrival = event.notice.action == CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL;
      const bool isHid = event.notice.classGuid == platform::HidInterfaceGuid;
      text += std::string(text.empty() ? "" : " ") + (isArrival ? "+" : "-") +
              static_cast<char>(path[path.find(u"col0") + 4]) + (isHid ? "" : "k") + "@" +
              std::to_string(event.timeMs - sinceMs);
    }
    return text;
  }

  // Sends the enter-DFU report to the third collection of the usual keyboard.
  BOOLEAN SendReport() {
    const std::u16string path =
        machine.devices.ListInterfaces(platform::HidInterfaceGuid, true).back();
    const HANDLE file = CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    u8 report[64] = {0x17, 0x01};
    const BOOLEAN sent = HidD_SetOutputReport(file, report, sizeof(report));
    CloseHandle(file);
    return sent;
  }
};

TEST_F(VirtualKeyboardTest, BootsAWholeImageAndNothingLess) {
  constexpr u32 SecondPart = DefaultFlashAddress + 0x10000;
  simulator::KeyboardOptions options;
  options.firmware = {{DefaultFlashAddress, 20'000}, {SecondPart, 1000}};
  const u32 record = static_cast<u32>(simulator::ImageRecordBytes(2));
  const struct {
    const char* what;
    u32 clearedAt;
    bool boots;
  } cases[] = {
      {"behind the image", SecondPart + 1000, true},
      {"the magic", DefaultFlashAddress, false},
      {"the version in the record", DefaultFlashAddress + 8, false},
      {"first byte behind the record", DefaultFlashAddress + record, false},
      {"last byte of the first part", DefaultFlashAddress + 19'999, false},
      {"first byte of the second part", SecondPart, false},
  };
  simulator::VirtualKeyboard& keyboard = PlugIn(options);
  const NorFlash whole = keyboard.ReadFlash();
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    EXPECT_EQ(keyboard.mode(), KeyboardMode::Normal);
    NorFlash flash = whole;
    flash.Program(test.clearedAt, {0});
    ASSERT_NE(flash.bytes(), whole.bytes());
    const auto boot = [&](const NorFlash& with) {
      keyboard.Detach();
      keyboard.WriteFlash(with);
      keyboard.Attach();
    };
    boot(flash);
    EXPECT_EQ(keyboard.mode(), test.boots ? KeyboardMode::Normal : KeyboardMode::Dfu);
    EXPECT_EQ(keyboard.runningVersion().has_value(), test.boots);
    boot(whole);
  }
}

TEST_F(VirtualKeyboardTest, ComesBackInDfuModeWhenTheImageIsNotWhole) {
  simulator::VirtualKeyboard& keyboard = BeginUpdate();
  PassTimeUntilReached(keyboard, Progress::Downloaded);
  NorFlash flash = keyboard.ReadFlash();
  flash.Erase(*flash.FindSector(package.contents.targets[0].elements[1].address));
  keyboard.WriteFlash(flash);
  PassTimeUntilReached(keyboard, Progress::Told);
  PassTime(100);
  EXPECT_EQ(keyboard.mode(), KeyboardMode::Restarting);
  PassTime(1200);
  EXPECT_EQ(keyboard.mode(), KeyboardMode::Dfu);
  ExpectUpdated(keyboard, {"START", "COMPLETE", "COMPLETE"});
}

TEST_F(VirtualKeyboardTest, ItsInterfacesComeInOrderAndLeaveWithIt) {
  simulator::KeyboardOptions options;
  options.collections[0].keyboardInterfaces = 2;
  options.arrivalOrder = {4, 1, 1, 9};
  options.arrivalGapMs = 10;
  const u64 sinceMs = nowMs();
  simulator::VirtualKeyboard& keyboard = PlugIn(options);
  PassTime(25);
  keyboard.Detach();
  PassTime(3);
  keyboard.Change([](simulator::KeyboardOptions& change) { change.arrivalGapMs = 50; });
  keyboard.Attach();
  PassTime(10);
  const std::string soFar = "+3@0 +1k@10 +1@20 -1@25 -1k@25 -3@25 +3@28";
  EXPECT_EQ(ComingAndGoing(sinceMs), soFar);
  EXPECT_EQ(machine.devices.ListInterfaces(platform::HidInterfaceGuid, true).size(), 1u);
  EXPECT_EQ(machine.devices.ListInterfaces(platform::HidInterfaceGuid, false).size(), 3u);
  PassTime(300);
  EXPECT_EQ(ComingAndGoing(sinceMs), soFar + " +1k@78 +1@128 +1k@178 +2@228");
}

TEST_F(VirtualKeyboardTest, LeavesAsLongAfterTheReportAsItShould) {
  const struct {
    u32 detachDelayMs;
    bool isPulled;  // before the report has reached it
    UsbResult result;
  } cases[] = {
      {0, false, UsbResult::Vanished}, {1, false, UsbResult::Done},    {12, false, UsbResult::Done},
      {500, false, UsbResult::Done},   {500, true, UsbResult::Absent},
  };
  simulator::VirtualKeyboard& keyboard = PlugIn();
  for (const auto& test : cases) {
    SCOPED_TRACE(testing::Message() << test.detachDelayMs << " ms, pulled " << test.isPulled);
    keyboard.Change(
        [&](simulator::KeyboardOptions& options) { options.detachDelayMs = test.detachDelayMs; });
    keyboard.Attach();
    if (test.isPulled) {
      machine.transfers.AtTransfer(machine.transfers.total() + 1, [&] { keyboard.Detach(); });
    }
    LookFromHere();
    EXPECT_EQ(SendReport(), test.result == UsbResult::Done);
    ASSERT_EQ(Transfers().size(), 1u);
    const platform::TransferRecord sent = Transfers()[0];
    EXPECT_EQ(sent.result, test.result);
    EXPECT_EQ(sent.reachedDevice, !test.isPulled);
    PassTimeUntil("it has left", [&] { return keyboard.mode() != KeyboardMode::Normal; });
    EXPECT_EQ(nowMs() - sent.endMs, test.result == UsbResult::Done ? test.detachDelayMs : 0);
    keyboard.Detach();
  }
}

}  // namespace
