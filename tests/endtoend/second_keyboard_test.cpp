// A second keyboard beside the one that is being updated.

#include "tests/support/running_update_test.h"

namespace {

using simulator::VirtualKeyboard;

simulator::KeyboardOptions AnotherKeyboard() {
  simulator::KeyboardOptions another;
  another.unit = u"8&5e6f7a8b";
  return another;
}

using SecondKeyboardTest = RunningUpdateTest;

// Its removal says nothing about the first one, which answers.
TEST_F(SecondKeyboardTest, ThatComesAndGoesEndsNothing) {
  VirtualKeyboard& keyboard = BeginUpdate();
  VirtualKeyboard& second = *new VirtualKeyboard(machine, AnotherKeyboard());
  for (const Progress progress : {Progress::Erasing, Progress::Downloading, Progress::Downloaded}) {
    PassTimeUntilReached(keyboard, progress);
    second.AttachInDfuMode();
    PassTime(1);
    second.Detach();
  }
  ExpectUpdated(keyboard, {"START", "COMPLETE"});
  EXPECT_EQ(keyboard.counts().sectorsErased, SectorsToErase);
  EXPECT_EQ(keyboard.counts().blocksWritten, BlocksToWrite);
}

TEST_F(SecondKeyboardTest, WaitsUntilItArrivesAgain) {
  VirtualKeyboard& first = BeginUpdate();
  PassTimeUntilReached(first, Progress::Downloading);
  VirtualKeyboard& second = PlugIn(AnotherKeyboard());
  ExpectUpdated(first, {"START", "START", "COMPLETE"});
  EXPECT_EQ(first.counts().blocksWritten, BlocksToWrite);
  EXPECT_EQ(second.mode(), simulator::KeyboardMode::Dfu);

  AttachAgain(second);
  ExpectUpdated(second, {"START", "START", "COMPLETE", "COMPLETE"});
}

// The device that is listed first is the one that is opened, and that is the newcomer.
class KeyboardInFrontTest : public RunningUpdateTest, public OfTable<Progress> {};

TEST_OF_ROW(KeyboardInFrontTest, IsNotWrittenToWithoutItsOwnErase) {
  VirtualKeyboard& newcomer = PlugInInDfuMode(AnotherKeyboard());
  newcomer.Detach();
  VirtualKeyboard& keyboard = BeginUpdate();
  PassTimeUntilReached(keyboard, row());
  newcomer.AttachInDfuMode();
  ExpectUpdated(newcomer, {"START", "DISCONNECT", "COMPLETE"});
  EXPECT_EQ(newcomer.counts().sectorsErased, SectorsToErase);
  EXPECT_EQ(newcomer.counts().blocksWritten, BlocksToWrite);

  AttachAgain(keyboard);
  ExpectUpdated(keyboard, {"START", "DISCONNECT", "COMPLETE", "COMPLETE"});
}

ROWS(KeyboardInFrontTest, IsNotWrittenToWithoutItsOwnErase, NameOf,
     {Progress::Erasing, Progress::Erased, Progress::Downloading, Progress::Downloaded});

}  // namespace
