// The whole road of one good update, seen from outside.

#include "tests/support/tablet_test.h"

namespace {

class GoodUpdateTest : public TabletTest {
 protected:
  void ExpectUpdated(simulator::VirtualKeyboard& keyboard, const simulator::Package& package) {
    PassTimeUntil("the keyboard runs the package's firmware",
                  [&] { return keyboard.runningVersion() == package.version; });
    PassTime(10'000);
    EXPECT_TRUE(keyboard.FlashHolds(package.contents.targets[0].elements));
    EXPECT_EQ(keyboard.strayDfuRequests(), 0u);
    EXPECT_EQ(CountLines("\nSuccessfully left DFU mode!\n"), 1u);
  }

  // Every open of the DFU device, and nothing of it left open.
  void ExpectDeviceOpened(std::size_t times) {
    EXPECT_EQ(machine.handles.OpenedEver(platform::HandleKind::WinUsb), times);
    EXPECT_EQ(machine.handles.ClosedEver(platform::HandleKind::WinUsb), times);
  }
};

TEST_F(GoodUpdateTest, AtStartUp) {
  const simulator::Package package = InstallPackage();
  LogOnUser();
  simulator::VirtualKeyboard& keyboard = PlugIn();
  StartService();

  ExpectUpdated(keyboard, package);
  EXPECT_EQ(Words(), (std::vector<std::string>{"START", "COMPLETE"}));
  ExpectDeviceOpened(8);
}

TEST_F(GoodUpdateTest, OnArrivalOfTheKeyboard) {
  const simulator::Package package = InstallPackage();
  LogOnUser();
  StartService();
  PassTime(60'000);
  simulator::VirtualKeyboard& keyboard = PlugIn();

  ExpectUpdated(keyboard, package);
  EXPECT_EQ(Words(), (std::vector<std::string>{"START", "COMPLETE"}));
  ExpectDeviceOpened(8);
  // Its return was noticed, and found nothing more to do.
  EXPECT_EQ(CountLines("Keyboard attached\n"), 2u);
}

// What it was doing when it was left there does not matter: no version, no battery, no "START".
TEST_F(GoodUpdateTest, KeyboardAlreadyInDfuModeAtStartUp) {
  const simulator::Package package = InstallPackage();
  LogOnUser();
  machine.power.SetBatteryPercent(5);
  simulator::VirtualKeyboard& keyboard = PlugInInDfuMode();
  StartService();

  ExpectUpdated(keyboard, package);
  EXPECT_EQ(Words(), (std::vector<std::string>{"COMPLETE"}));
  EXPECT_EQ(CountLines("Success:: get Version number\n"), 0u);
  ExpectDeviceOpened(9);
}

}  // namespace
