// The keyboard's version, read from its product string.

#include "keyboard/keyboard_version.h"

#include "platform/machine/text.h"
#include "tests/support/tablet_test.h"

namespace {

using platform::Call;
using Strings = std::vector<std::string>;
using ProductStrings = std::vector<std::optional<std::u16string>>;

constexpr char ReadLine[] = "Success:: get Version number\n";
constexpr char StallLine[] = "Fail:: get Version number:: 31\n";

// Major, minor, model id, hardware revision.
using Version = std::vector<i32>;
const Version None = {0, 0, 0, 0};

class KeyboardVersionTest : public TabletTest {
 protected:
  Version Read() {
    LookFromHere();
    ReadKeyboardVersion();
    return {deviceVersion.major, deviceVersion.minor, deviceVersion.modelId, deviceVersion.hwRev};
  }

  // A collection for each string; one without a string refuses it. None of them is the one that
  // takes the enter-DFU report.
  simulator::VirtualKeyboard& PlugInWith(const ProductStrings& productStrings) {
    simulator::KeyboardOptions options;
    options.collections.assign(productStrings.size(), {});
    for (std::size_t i = 0; i < productStrings.size(); ++i) {
      options.collections[i].usagePage = 0x0C;
      options.collections[i].productString = productStrings[i];
      options.collections[i].refusesProductString = !productStrings[i].has_value();
    }
    return PlugIn(options);
  }
};

TEST_F(KeyboardVersionTest, TakesTheDigitsFromTheirPositions) {
  // 126 characters and their end are 254 bytes.
  const std::u16string long126 = u"Keyboard v3.1.2.1" + std::u16string(109, u'9');
  const std::tuple<std::u16string, Version, const char*> cases[] = {
      {u"Keyboard v3.1.2.1", {3, 1, 2, 1}, ReadLine},
      {u"99999999990919293999", {0, 1, 2, 3}, ReadLine},
      {u"Keyboard v3.1.B.1", {3, 1, 0, 1}, ReadLine},
      {u"Keyboard v/.:. .-", None, ReadLine},
      {u"Keyboard v3.1", {3, 1, 0, 0}, ReadLine},
      {{u"Keyboard v3.1\0002.1", 17}, {3, 1, 0, 0}, ReadLine},
      {u"", None, ReadLine},
      {u"Keyboard v\u0133.1.2.\uFF13", {0, 1, 2, 0}, ReadLine},
      {long126, {3, 1, 2, 1}, ReadLine},
      {long126 + u'9', None, "Fail:: get Version number:: 1784\n"},
  };
  for (const auto& [productString, version, line] : cases) {
    simulator::VirtualKeyboard& keyboard = PlugInWith({productString});
    EXPECT_EQ(Read(), version) << platform::Utf8FromWide(productString);
    EXPECT_EQ(Lines(), Strings{line}) << platform::Utf8FromWide(productString);
    keyboard.Detach();
  }
}

TEST_F(KeyboardVersionTest, TheLastInterfaceThatYieldsItsStringDecides) {
  const std::tuple<ProductStrings, Version, Strings> cases[] = {
      {{u"Keyboard v1.1.1.1", u"Keyboard v2.2.2.2"}, {2, 2, 2, 2}, {ReadLine, ReadLine}},
      {{u"Keyboard v1.1.1.1", u"Keys"}, None, {ReadLine, ReadLine}},
      {{u"Keyboard v1.1.1.1", std::nullopt}, {1, 1, 1, 1}, {ReadLine, StallLine}},
      {{std::nullopt, u"Keyboard v1.1.1.1"}, {1, 1, 1, 1}, {StallLine, ReadLine}},
      {{std::nullopt}, None, {StallLine}},
  };
  for (const auto& [productStrings, version, lines] : cases) {
    simulator::VirtualKeyboard& keyboard = PlugInWith(productStrings);
    EXPECT_EQ(Read(), version);
    EXPECT_EQ(Lines(), lines);
    keyboard.Detach();
  }
}

TEST_F(KeyboardVersionTest, SkipsSilentlyWhatItCannotOpenAndWhatIsNoKeyboard) {
  simulator::KeyboardOptions otherVendor, otherProduct;
  otherVendor.vendorId ^= 1;
  otherProduct.productId ^= 2;
  PlugIn(otherVendor);
  PlugIn(otherProduct);
  EXPECT_EQ(Read(), None);
  EXPECT_EQ(Lines(), Strings{});
  PlugIn();
  EXPECT_EQ(Read(), (Version{1, 0, 2, 1}));
  EXPECT_EQ(Lines(), (Strings{ReadLine, ReadLine})) << "its keys are the system's own";
  KeepFailing(Call::HidD_GetAttributes, ERROR_GEN_FAILURE);
  EXPECT_EQ(Read(), None);
  EXPECT_EQ(Lines(), Strings{});
}

TEST_F(KeyboardVersionTest, OpensForReadingBesideOtherPrograms) {
  PlugInWith({u"Keyboard v3.1.2.1"});
  const std::u16string path = machine.devices.ListInterfaces(platform::HidInterfaceGuid, true)[0];
  const std::tuple<DWORD, DWORD, Version> others[] = {
      {GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, {3, 1, 2, 1}},
      {GENERIC_READ, FILE_SHARE_READ, {3, 1, 2, 1}},
      {GENERIC_READ, FILE_SHARE_WRITE, None}};
  for (const auto& [access, share, version] : others) {
    const HANDLE file =
        CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_EQ(Read(), version) << "access " << access << ", share " << share;
    CloseHandle(file);
  }
}

TEST_F(KeyboardVersionTest, IsZeroWhenTheInterfacesCannotBeListed) {
  PlugIn();
  const std::tuple<Call, DWORD, const char*> cases[] = {
      {Call::CM_Get_Device_Interface_List_SizeW, CR_FAILURE, "1........."},
      {Call::HeapAlloc, ERROR_NOT_ENOUGH_MEMORY, "Out of memory\n"},
      {Call::CM_Get_Device_Interface_ListW, CR_BUFFER_SMALL, "2.........."}};
  for (const auto& [call, error, line] : cases) {
    Read();
    FailCall(call, error);
    EXPECT_EQ(Read(), None) << line;
    EXPECT_EQ(Lines(), Strings{line});
  }
}

}  // namespace
