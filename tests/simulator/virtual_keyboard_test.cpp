// What the keyboard boots.

#include "tests/support/running_update_test.h"

namespace {

using simulator::DefaultFlashAddress;
using simulator::KeyboardMode;
using simulator::NorFlash;

using VirtualKeyboardTest = RunningUpdateTest;

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

}  // namespace
