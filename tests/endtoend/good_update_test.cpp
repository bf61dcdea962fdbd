// The whole road of one good update, seen from outside.

#include "tests/support/running_update_test.h"

namespace {

using GoodUpdateTest = RunningUpdateTest;

TEST_F(GoodUpdateTest, AtStartUp) {
  simulator::VirtualKeyboard& keyboard = PlugIn();
  StartService();
  ExpectUpdated(keyboard, {"START", "COMPLETE"});
  EXPECT_EQ(CountLines("\nSuccessfully left DFU mode!\n"), 1u);
}

TEST_F(GoodUpdateTest, OnArrivalOfTheKeyboard) {
  ExpectUpdated(BeginUpdate(), {"START", "COMPLETE"});
  EXPECT_EQ(CountLines("\nSuccessfully left DFU mode!\n"), 1u);
  // Its return was noticed, and found nothing more to do.
  EXPECT_EQ(CountLines("Keyboard attached\n"), 2u);
}

// What it was doing when it was left there does not matter: no version, no battery, no "START".
TEST_F(GoodUpdateTest, KeyboardAlreadyInDfuModeAtStartUp) {
  machine.power.SetBatteryPercent(5);
  simulator::VirtualKeyboard& keyboard = PlugInInDfuMode();
  StartService();
  ExpectUpdated(keyboard, {"COMPLETE"});
  EXPECT_EQ(CountLines("Success:: get Version number\n"), 0u);
}

}  // namespace
