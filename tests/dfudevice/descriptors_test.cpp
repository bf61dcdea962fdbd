#include "dfudevice/descriptors.h"

#include "common/status.h"
#include "dfudevice/dfu_device_entry.h"
#include "dfudevice/memory_map.h"
#include "tests/dfudevice/dfu_device_test.h"
#include "tests/support/refused_memory.h"

namespace {

using platform::Bytes;
using platform::Call;

// A keyboard in DFU mode that is open for WinUSB during the test.
class DescriptorsTest : public DfuDeviceTest {
 protected:
  simulator::VirtualKeyboard& PlugInAndOpen(const simulator::KeyboardOptions& options) {
    simulator::VirtualKeyboard& keyboard = PlugInInDfuMode(options);
    OpenFirstDfuDevice(entry_);
    LookFromHere();
    return keyboard;
  }

  void TearDown() override {
    CloseDfuDevice(entry_);
    EmptyMemoryMapTable(memoryMapTable);
    EXPECT_EQ(simulator::ProductMemory().blocks, 0u);
    DfuDeviceTest::TearDown();
  }

  u32 Decode() {
    EmptyMemoryMapTable(memoryMapTable);
    return DecodeMemoryMaps(entry_.winUsbHandle);
  }

  // Whatever went before, a table that was not installed is empty.
  void ExpectRefused(u32 result, const std::string& what) {
    EXPECT_EQ(Decode(), result) << what;
    EXPECT_EQ(memoryMapTable.maps, nullptr) << what;
    EXPECT_EQ(memoryMapTable.mapCount, 0u) << what;
    EXPECT_EQ(memoryMapTable.transferSize, 0) << what;
  }

  // Answers these bytes whenever the keyboard is asked for descriptors of the type.
  static void AnswerDescriptor(simulator::VirtualKeyboard& keyboard, u8 type, const Bytes& bytes) {
    keyboard.Intercept([type, bytes](const WINUSB_SETUP_PACKET& setup, const Bytes&) {
      return setup.Value >> 8 == type
                 ? std::optional(platform::UsbReply{platform::UsbResult::Done, bytes})
                 : std::nullopt;
    });
  }

  u32 ReadSize(u16& transferSize) { return ReadTransferSize(entry_.winUsbHandle, transferSize); }

 private:
  DfuDeviceEntry entry_{};
};

constexpr u8 ConfigurationType = 2;
constexpr u8 StringType = 3;

constexpr char PlainMap[] = "@Flash/0x08000000/4*16Kg";

// A string descriptor of that text; length is what its first byte says.
Bytes StringDescriptor(const std::u16string& text, u8 length) {
  Bytes bytes = {length, StringType};
  for (const char16_t each : text) {
    bytes.push_back(static_cast<u8>(each));
    bytes.push_back(static_cast<u8>(each >> 8));
  }
  return bytes;
}

TEST_F(DescriptorsTest, DecodesTheMapOfEachAlternateSetting) {
  simulator::KeyboardOptions options =
      KeyboardWithMaps({"@One/0/1*1Ka", "@Two/0x100/2*1Kg", "@Three/0x200/3*1Ke"});
  options.alternateSettings[0].number = 4;
  options.alternateSettings[2].number = 255;
  options.bootloader.transferSize = 2048;
  PlugInAndOpen(options);

  ASSERT_EQ(Decode(), 1u);
  ASSERT_EQ(memoryMapTable.mapCount, 3u);
  const std::pair<u8, std::string> expected[] = {{4, "One"}, {1, "Two"}, {255, "Three"}};
  for (u32 i = 0; i < 3; ++i) {
    const MemoryMap& map = memoryMapTable.maps[i];
    EXPECT_EQ(map.alternateSetting, expected[i].first);
    EXPECT_EQ(map.name, expected[i].second);
    ASSERT_EQ(map.sectorCount, i + 1);
    EXPECT_EQ(map.sectors[0].address, i * 0x100);
  }
  EXPECT_EQ(memoryMapTable.transferSize, 2048);
}

TEST_F(DescriptorsTest, OneRefusedSettingRefusesAll) {
  simulator::VirtualKeyboard& keyboard = PlugInAndOpen(KeyboardWithMaps({PlainMap, PlainMap}));
  for (const char* const map : {"Bootloader", "@F/0/4 1*1Kg", ""}) {
    keyboard.Change(
        [&](simulator::KeyboardOptions& options) { options.alternateSettings[1].mapString = map; });
    ExpectRefused(StatusNothingToWorkOn, map);
  }
  // Together they are more than can be meant.
  keyboard.Change([](simulator::KeyboardOptions& options) {
    options.alternateSettings[1].mapString = "@F/0/65533*1Kg";
  });
  ExpectRefused(StatusNothingToWorkOn, "65537 sectors in all");

  // String 0 is no text of a setting, whatever a device may answer for it.
  keyboard.Change(
      [](simulator::KeyboardOptions& options) { options.alternateSettings[1].mapString = ""; });
  AnswerDescriptor(keyboard, StringType, StringDescriptor(u"@F/0/1*1Kg", 22));
  ExpectRefused(StatusNothingToWorkOn, "string 0");
  keyboard.Intercept(nullptr);

  // A setting without a text is asked for it all the same.
  FailCall(Call::WinUsb_GetDescriptor, ERROR_GEN_FAILURE, 4);
  ExpectRefused(0, "no text, and its read fails");
}

TEST_F(DescriptorsTest, FailedCallsFailTheDecoding) {
  const std::pair<Call, u32> cases[] = {
      {Call::WinUsb_GetDescriptor, 2}, {Call::WinUsb_QueryInterfaceSettings, 1},
      {Call::WinUsb_GetDescriptor, 3}, {Call::WinUsb_QueryInterfaceSettings, 2},
      {Call::WinUsb_GetDescriptor, 4},
  };
  PlugInAndOpen(KeyboardWithMaps({PlainMap, PlainMap}));
  for (const auto& [call, occurrence] : cases) {
    FailCall(call, ERROR_GEN_FAILURE, occurrence);
    ExpectRefused(0, std::string(NameOf(call)) + " " + std::to_string(occurrence));
  }

  std::size_t request = 1;
  for (bool met = true; met; ++request) {
    const RefusedMemory refused(request);
    const u32 result = Decode();
    met = refused.met();
    EXPECT_EQ(result, met ? 0u : 1u) << "request " << request;
    EXPECT_EQ(memoryMapTable.mapCount, met ? 0u : 2u) << "request " << request;
  }
  // The table, and the sectors of two maps.
  EXPECT_EQ(request, 5u);
}

TEST_F(DescriptorsTest, TakesOnlyTheTextThatCame) {
  const std::u16string text = u"@F/0/1*1Kg,2*2Kg";
  const struct {
    const char* what;
    Bytes answer;
    u32 result;
    u32 sectorCount;
  } cases[] = {
      {"whole", StringDescriptor(text, 34), 1, 3},
      {"more bytes than its length", StringDescriptor(text, 22), 1, 1},
      {"odd length", StringDescriptor(text, 23), 1, 1},
      {"more length than bytes", StringDescriptor(text, 255), 1, 3},
      {"length without text", StringDescriptor(u"", 255), StatusNothingToWorkOn, 0},
      {"half a character", {255, StringType, '@'}, StatusNothingToWorkOn, 0},
      {"length 1", StringDescriptor(text, 1), StatusNothingToWorkOn, 0},
      {"length 0", StringDescriptor(text, 0), StatusNothingToWorkOn, 0},
      {"no byte", {}, StatusNothingToWorkOn, 0},
      {"512 bytes", StringDescriptor(text + std::u16string(239, u' '), 34), 1, 3},
  };
  simulator::VirtualKeyboard& keyboard = PlugInAndOpen({});
  for (const auto& each : cases) {
    AnswerDescriptor(keyboard, StringType, each.answer);
    EXPECT_EQ(Decode(), each.result) << each.what;
    const u32 sectorCount = memoryMapTable.mapCount == 0 ? 0 : memoryMapTable.maps[0].sectorCount;
    EXPECT_EQ(sectorCount, each.sectorCount) << each.what;
  }
}

// The euro sign is one byte there, a Chinese character none.
TEST_F(DescriptorsTest, NamesComeInTheAnsiCodePage) {
  simulator::VirtualKeyboard& keyboard = PlugInAndOpen({});
  AnswerDescriptor(keyboard, StringType, StringDescriptor(u"@\u20AC\u00E9\u4E2D/0/1*1Kg", 26));
  ASSERT_EQ(Decode(), 1u);
  EXPECT_STREQ(memoryMapTable.maps[0].name, "\x80\xE9?");
}

TEST_F(DescriptorsTest, UnreadableConfigurationSetFailsBoth) {
  AnswerDescriptor(PlugInAndOpen({}), ConfigurationType, {9, 2, 18, 0, 1, 1, 0, 0x80, 50});
  ExpectRefused(0, "less than it claims");
  u16 transferSize = 77;
  EXPECT_EQ(ReadSize(transferSize), StatusRequestFailed);
  FailCall(Call::WinUsb_GetDescriptor, ERROR_GEN_FAILURE);
  EXPECT_EQ(ReadSize(transferSize), StatusRequestFailed);
  EXPECT_EQ(transferSize, 77);
}

}  // namespace
