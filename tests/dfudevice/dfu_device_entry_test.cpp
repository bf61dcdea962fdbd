#include "dfudevice/dfu_device_entry.h"

#include <cstring>

#include "dfudevice/dfu_device_list.h"
#include "platform/machine/text.h"
#include "tests/dfudevice/dfu_device_test.h"
#include "tests/support/dfu_path.h"

namespace {

using platform::Call;
using Texts = std::vector<std::string>;

class DfuDeviceEntryTest : public DfuDeviceTest {
 protected:
  // Whatever was in the entry before must not be taken for a handle or a path.
  DfuDeviceEntryTest() { std::memset(&entry, 0xAB, sizeof(entry)); }

  std::string Path() const { return platform::Utf8FromWide(entry.path); }

  void ExpectNothingOpen() const {
    EXPECT_EQ(entry.opened, 0);
    EXPECT_EQ(entry.winUsbHandle, nullptr);
    EXPECT_EQ(entry.fileHandle, INVALID_HANDLE_VALUE);
    ExpectAllClosed();
  }

  DfuDeviceEntry entry;
};

TEST_F(DfuDeviceEntryTest, OpensTheFirstDevice) {
  PlugInInDfuMode();
  simulator::KeyboardOptions another;
  another.unit = u"9&9";
  PlugInInDfuMode(another);

  OpenFirstDfuDevice(entry);
  ASSERT_EQ(entry.opened, 1);
  EXPECT_EQ(Path(), UsualDfuPath);
  const platform::OpenMode mode =
      machine.handles.Get<platform::DeviceFile>(entry.fileHandle, "the test")->mode();
  EXPECT_EQ(mode.access, 0xC0000000);
  EXPECT_EQ(mode.share, 3u);
  EXPECT_EQ(mode.flags, 0x40000080u);

  WatchCalls();
  CloseDfuDevice(entry);
  ExpectNothingOpen();
  // A second time there is nothing to close.
  CloseDfuDevice(entry);
  EXPECT_EQ(calls, (Texts{"WinUsb_Free", "CloseHandle"}));
}

// The image preparation may be reading the refreshed list while an operation opens the device.
TEST_F(DfuDeviceEntryTest, LeavesTheRefreshedListAlone) {
  simulator::VirtualKeyboard& keyboard = PlugInInDfuMode();
  ASSERT_EQ(RefreshDfuDevices(), 1);
  keyboard.Detach();
  OpenFirstDfuDevice(entry);
  ExpectNothingOpen();
  EXPECT_EQ(dfuDeviceList.count, 1);
  EXPECT_STREQ(dfuDeviceList.paths[0], UsualDfuPath);
}

}  // namespace
