#include "dfudevice/dfu_device_list.h"

#include <algorithm>

#include "dfudevice/dfu_interface.h"
#include "dfudevice/memory_map.h"
#include "platform/machine/text.h"
#include "simulator/hid_side.h"
#include "tests/dfudevice/dfu_device_test.h"
#include "tests/support/dfu_path.h"

namespace {

using platform::Call;
using Texts = std::vector<std::string>;

constexpr char UsualName[] = "Keyboard firmware update";
constexpr char UnnamedDevice[] = "(Unnamed DFU device)";
constexpr char NoDevice[] = "0 Device(s) found. Plug your DFU Device ! \n";
constexpr char CannotOpen[] = "1 Device(s) found. Can't open device winusb handle \n";
constexpr char NoDescriptor[] = "Unable to get descriptor... Bad Firmware";
constexpr char NoMapping[] = "Unable to find or decode device mapping... Bad Firmware";

// What a refresh writes about that many devices when it has opened the first.
Texts FoundLines(i32 count, const std::string& name, u32 mapCount, Texts before = {}) {
  const std::string number = std::to_string(count);
  before.push_back(number + " Device(s) found : \n");
  for (i32 i = 0; i < count; ++i) {
    before.push_back("Device [" + number + "]: " + name + ", having [" + std::to_string(mapCount) +
                     "] alternate targets \n");
  }
  return before;
}

class DfuDeviceListTest : public DfuDeviceTest {
 protected:
  void ExpectRefresh(i32 result, const Texts& lines) {
    LookFromHere();
    EXPECT_EQ(RefreshDfuDevices(), result);
    EXPECT_EQ(Lines(), lines);
    EXPECT_EQ(memoryMapTable.mapCount != 0, memoryMapTable.maps != nullptr);
    EXPECT_TRUE(memoryMapTable.mapCount != 0 || *memoryMapTable.devicePath == '\0');
    ExpectAllClosed();
  }

  void PlugInAnother() {
    simulator::KeyboardOptions another;
    another.unit = u"9&9";
    another.dfuDescription = u"Another one";
    PlugInInDfuMode(another);
  }

  // Interfaces that cannot be talked to.
  void AttachInterfaces(i32 count, const GUID& classGuid) {
    std::vector<platform::Device> devices;
    for (i32 i = 0; i < count; ++i) {
      platform::Device& device = devices.emplace_back();
      device.instanceId = simulator::Widen("USB\\OTHER\\" + std::to_string(i));
      platform::DeviceInterface& usb = device.interfaces.emplace_back();
      usb.classGuid = classGuid;
      usb.path = simulator::Widen("\\\\?\\usb#other#" + std::to_string(i));
    }
    machine.devices.Attach(devices);
  }
};

TEST_F(DfuDeviceListTest, RefreshesInOrder) {
  PlugInInDfuMode(KeyboardWithMaps({"@A/0/1*1Kg", "@B/0/1*1Kg"}));
  ExpectRefresh(1, FoundLines(1, UsualName, 2));
  EXPECT_EQ(
      DescriptorReads(),
      (Texts{"type 1 index 0, language 0000, 18 bytes", "type 4 index 0, language 0000, 9 bytes",
             "type 2 index 0, language 0000, 512 bytes", "type 3 index 4, language 0409, 512 bytes",
             "type 3 index 5, language 0409, 512 bytes"}));
}

TEST_F(DfuDeviceListTest, NoDeviceAnyMore) {
  simulator::VirtualKeyboard& keyboard = PlugInInDfuMode();
  AttachInterfaces(1, platform::HidInterfaceGuid);
  ExpectRefresh(1, FoundLines(1, UsualName, 1));
  keyboard.Detach();
  ExpectRefresh(0, {NoDevice});
  EXPECT_EQ(memoryMapTable.mapCount, 0u);
  EXPECT_EQ(dfuDeviceList.count, 0);
  EXPECT_STREQ(dfuDeviceList.paths[0], "");
}

TEST_F(DfuDeviceListTest, KeepsTheMapsWhenItCannotList) {
  const std::pair<Call, std::string> cases[] = {
      {Call::CM_Get_Device_Interface_List_SizeW, "Get buffer size fail.\n"},
      {Call::HeapAlloc, "Out of memory\n"},
  };
  PlugInInDfuMode();
  ASSERT_EQ(RefreshDfuDevices(), 1);
  for (const auto& [call, line] : cases) {
    FailCall(call, CR_FAILURE);
    ExpectRefresh(0, {line});
    ASSERT_EQ(memoryMapTable.mapCount, 1u);
    EXPECT_EQ(memoryMapTable.maps[0].sectorCount, 6u);
    EXPECT_STREQ(memoryMapTable.devicePath, UsualDfuPath);
    EXPECT_EQ(dfuDeviceList.count, 0);
    EXPECT_STREQ(dfuDeviceList.paths[0], "");
  }
}

TEST_F(DfuDeviceListTest, Failures) {
  const Texts unreadable = FoundLines(1, UsualName, 0, {NoDescriptor});
  const Texts noMap = FoundLines(1, UsualName, 0, {NoMapping});
  const struct {
    Call call;
    u32 occurrence;  // of what the listing calls, the second one is the opening's
    Texts lines;
  } cases[] = {
      {Call::CM_Get_Device_Interface_ListW, 1, {NoDevice}},
      {Call::CM_Get_Device_Interface_List_SizeW, 2, {"Get buffer size fail.\n", CannotOpen}},
      {Call::HeapAlloc, 2, {"Out of memory\n", CannotOpen}},
      {Call::CM_Get_Device_Interface_ListW, 2, {CannotOpen}},
      {Call::CM_Get_Device_Interface_PropertyW, 2, {CannotOpen}},
      {Call::CreateFileW, 1, {CannotOpen}},
      {Call::WinUsb_Initialize, 1, {CannotOpen}},
      {Call::WinUsb_GetDescriptor, 1, unreadable},
      {Call::WinUsb_GetDescriptor, 3, noMap},
  };
  PlugInInDfuMode();
  for (const auto& each : cases) {
    SCOPED_TRACE(std::string(NameOf(each.call)) + " " + std::to_string(each.occurrence));
    ASSERT_EQ(RefreshDfuDevices(), 1);
    FailCall(each.call, ERROR_GEN_FAILURE, each.occurrence);
    ExpectRefresh(0, each.lines);
    EXPECT_EQ(memoryMapTable.mapCount, 0u);
  }
}

// The length that is asked for first covers it although it is not present then.
TEST_F(DfuDeviceListTest, DeviceReturnsDuringTheListing) {
  simulator::VirtualKeyboard& keyboard = PlugInInDfuMode();
  keyboard.Detach();
  const platform::Observation returning = machine.gate.Observe([&](Call call) {
    if (call == Call::CM_Get_Device_Interface_ListW &&
        keyboard.mode() == simulator::KeyboardMode::Detached) {
      keyboard.AttachInDfuMode();
    }
  });
  ExpectRefresh(1, FoundLines(1, UsualName, 1));
}

TEST_F(DfuDeviceListTest, OpensOnlyTheFirstOfTwo) {
  PlugInInDfuMode();
  PlugInAnother();
  ExpectRefresh(1, FoundLines(2, UsualName, 1));
  EXPECT_EQ(dfuDeviceList.count, 2);
  for (const platform::TransferRecord& transfer : Transfers()) {
    EXPECT_EQ(platform::Utf8FromWide(transfer.path), dfuDeviceList.paths[0]);
  }
}

TEST_F(DfuDeviceListTest, DoesNotFallBackOnTheSecond) {
  // The status for it is no zero, and must not pass for success.
  simulator::KeyboardOptions foreign = KeyboardWithMaps({"Serial bootloader"});
  foreign.vendorId = 0x1D50;
  foreign.dfuDescription = u"Another maker's device";
  simulator::VirtualKeyboard& first = PlugInInDfuMode(foreign);
  PlugInAnother();
  ExpectRefresh(0, FoundLines(2, "Another maker's device", 0, {NoMapping}));

  first.Change([](simulator::KeyboardOptions& options) { options.dfuInstanceIdReadable = false; });
  first.AttachInDfuMode();
  WatchCalls();
  ExpectRefresh(0, {"2 Device(s) found. Can't open device winusb handle \n"});
  EXPECT_STREQ(dfuDeviceList.paths[0], "");
  EXPECT_STRNE(dfuDeviceList.paths[1], "");
  EXPECT_EQ(Wire(), Texts{});
  // Without an instance id there is no node to look for.
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "CM_Locate_DevNodeW"), 2);
}

TEST_F(DfuDeviceListTest, MoreInterfacesThanSlots) {
  PlugInInDfuMode();
  AttachInterfaces(130, DfuInterfaceGuid);
  ExpectRefresh(1, FoundLines(131, UsualName, 1));
  EXPECT_EQ(dfuDeviceList.count, 131);
  EXPECT_STREQ(dfuDeviceList.paths[1], "\\\\?\\usb#other#0");
  EXPECT_STREQ(dfuDeviceList.paths[127], "\\\\?\\usb#other#126");
}

TEST_F(DfuDeviceListTest, Paths) {
  const auto path = [](std::size_t chars) { return u"\\\\?\\" + std::u16string(chars - 4, u'p'); };
  const struct {
    std::u16string path;
    std::string slot;  // empty when the path is too long to be opened
  } cases[] = {
      {path(259), "\\\\?\\" + std::string(255, 'p')},
      {path(260), ""},
      {path(600), ""},
      {u"\\\\?\\\u00E9\u20AC", "\\\\?\\\xE9\x80"},
  };
  simulator::VirtualKeyboard& keyboard = PlugInInDfuMode();
  for (const auto& each : cases) {
    SCOPED_TRACE(platform::Utf8FromWide(each.path));
    keyboard.Change([&](simulator::KeyboardOptions& options) { options.dfuPath = each.path; });
    keyboard.AttachInDfuMode();
    ExpectRefresh(each.slot.empty() ? 0 : 1,
                  each.slot.empty() ? Texts{CannotOpen} : FoundLines(1, UsualName, 1));
    EXPECT_EQ(std::string(dfuDeviceList.paths[0]), each.slot);
    EXPECT_EQ(std::string(dfuDeviceList.paths[1]), "");
  }
}

TEST_F(DfuDeviceListTest, Names) {
  const struct {
    std::optional<std::u16string> description;
    std::string shown;
  } cases[] = {
      {std::nullopt, UnnamedDevice},
      {u"", ""},
      {std::u16string(80, u'x'), std::string(80, 'x')},
      {std::u16string(80, u'x') + u"y", std::string(80, 'x')},
      {std::u16string(125, u'x'), std::string(80, 'x')},
      {std::u16string(126, u'x'), UnnamedDevice},
      {u"Clavi\u00E9r \u007F\u0080", platform::Utf8FromWide(u"Clavi\uFFE9r \u007F\uFF80")},
      {u"\u4E2D\u0141\u20AC", platform::Utf8FromWide(u"-A\uFFAC")},
      {u"100%d %s", "100%d %s"},
  };
  simulator::VirtualKeyboard& keyboard = PlugInInDfuMode();
  for (const auto& each : cases) {
    SCOPED_TRACE(each.shown);
    keyboard.Change(
        [&](simulator::KeyboardOptions& options) { options.dfuDescription = each.description; });
    keyboard.AttachInDfuMode();
    ExpectRefresh(1, FoundLines(1, each.shown, 1));
  }

  for (const Call call : {Call::CM_Get_Device_Interface_PropertyW, Call::CM_Locate_DevNodeW,
                          Call::CM_Get_DevNode_Registry_PropertyW}) {
    SCOPED_TRACE(NameOf(call));
    FailCall(call, CR_FAILURE);
    ExpectRefresh(1, FoundLines(1, UnnamedDevice, 1));
    // The instance id, or what depends on it.
    EXPECT_EQ(dfuDeviceList.paths[0][0] == 0, call == Call::CM_Get_Device_Interface_PropertyW);
  }
}

}  // namespace
