// The report that restarts the keyboard in DFU mode.

#include "keyboard/enter_dfu.h"

#include "keyboard/hid_discovery.h"
#include "tests/keyboard/discovery_lines.h"
#include "tests/support/tablet_test.h"

namespace {

using Strings = std::vector<std::string>;

constexpr char Match[] = "Success: Found my KBD.. \n";
constexpr char NotSent[] = "failed in HidD_SetOutputReport.\n";

class EnterDfuTest : public TabletTest {
 protected:
  void ExpectClosed() {
    EXPECT_EQ(keyboardHandle, INVALID_HANDLE_VALUE);
    EXPECT_EQ(machine.handles.OpenCount(platform::HandleKind::File), 0u);
  }
};

// The driver takes what the collection's reports need from the 2048 bytes.
TEST_F(EnterDfuTest, SendsTheCommandAndZeros) {
  simulator::KeyboardOptions options;
  for (const USHORT bytes : {2, 64, 2048}) {
    options.collections.back().outputReportBytes = bytes;
    simulator::VirtualKeyboard& keyboard = PlugIn(options);
    LookFromHere();
    EXPECT_EQ(EnterDfuMode(), 1) << bytes;
    EXPECT_EQ(Lines(), (Strings{Looking, Match, "Found Device\n", "HidD_SetOutputReport done.\n"}));
    platform::Bytes report(bytes, 0);
    report[0] = 0x17;
    report[1] = 0x01;
    ASSERT_EQ(Transfers().size(), 1u) << bytes;
    EXPECT_EQ(Transfers()[0].data, report) << bytes;
    ExpectClosed();
    keyboard.Detach();
  }
  options.collections.back().outputReportBytes = 2049;
  PlugIn(options);
  EXPECT_EQ(EnterDfuMode(), 0) << "more than the whole buffer";
}

TEST_F(EnterDfuTest, TriesToSendWithoutAKeyboard) {
  EXPECT_EQ(EnterDfuMode(), 0);
  EXPECT_EQ(Lines(),
            (Strings{"Error: No active device interfaces found.\n Is the sample driver loaded?",
                     NotSent, "HIDSetOutputReport failed Error:6", "Enter DFU:: fail\n"}));
}

}  // namespace
