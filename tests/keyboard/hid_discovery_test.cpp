// The search for the collection that takes the enter-DFU report.

#include "keyboard/hid_discovery.h"

#include <hidsdi.h>

#include "common/handles.h"
#include "platform/machine/text.h"
#include "tests/keyboard/discovery_lines.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/tablet_test.h"

namespace {

using platform::Call;
using platform::HandleKind;
using Strings = std::vector<std::string>;

constexpr std::size_t npos = std::string::npos;
constexpr char Found[] = "Success: Found my KBD.. \n";

class HidDiscoveryTest : public TabletTest {
 protected:
  void TearDown() override {
    found_.Close();
    TabletTest::TearDown();
  }

  i32 Find() {
    GUID hidGuid;
    HidD_GetHidGuid(&hidGuid);
    LookFromHere();
    return FindHidDevice(&hidGuid, found_.Receive());
  }

  // "col03" is the keyboard's third collection.
  void ExpectFound(const std::string& collection, const std::string& what = "") {
    const auto file = machine.handles.Get<platform::DeviceFile>(found_.get(), "test");
    ASSERT_NE(file, nullptr) << what;
    EXPECT_NE(platform::Utf8FromWide(file->target()->details().path).find(collection), npos)
        << what;
    EXPECT_EQ(file->mode().access, 0u) << what;
    EXPECT_EQ(file->mode().share, DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE}) << what;
    EXPECT_EQ(file->mode().flags, 0u) << what;
    EXPECT_EQ(machine.handles.OpenCount(HandleKind::File), 1u) << what;
  }

  void ExpectNothingFound(const std::string& what) const {
    EXPECT_FALSE(found_.valid()) << what;
    EXPECT_EQ(machine.handles.OpenCount(HandleKind::File), 0u) << what;
  }

 private:
  FileHandle found_;
};

TEST_F(HidDiscoveryTest, OpensTheGenericDesktopCollectionWithUsageZero) {
  PlugIn();
  const StdoutCapture out;
  EXPECT_EQ(Find(), 1);
  ExpectFound("col03");
  EXPECT_EQ(Lines(), (Strings{Looking, Found}));
  EXPECT_EQ(out.Text(),
            "Caps.UP=0x1 Caps.Usage=0x6\nCaps.UP=0xc Caps.Usage=0x1\nCaps.UP=0x1 Caps.Usage=0x0\n");
}

TEST_F(HidDiscoveryTest, PassesOverWhatDiffersInOneProperty) {
  for (const std::string what : {"usage page", "usage", "vendor id", "product id"}) {
    simulator::KeyboardOptions options;
    options.vendorId ^= what == "vendor id" ? 1 : 0;
    options.productId ^= what == "product id" ? 2 : 0;
    options.collections.resize(1);
    options.collections[0].usagePage = what == "usage page" ? 0x0C : 1;
    options.collections[0].usage = what == "usage" ? 6 : 0;
    simulator::VirtualKeyboard& keyboard = PlugIn(options);
    const StdoutCapture out;
    EXPECT_EQ(Find(), 0) << what;
    EXPECT_NE(out.Text(), "") << what;
    EXPECT_EQ(Lines(), Strings{Looking}) << what;
    ExpectNothingFound(what);
    keyboard.Detach();
  }
}

TEST_F(HidDiscoveryTest, TakesTheFirstMatchThatCanBeRead) {
  simulator::KeyboardOptions options;
  options.collections.assign(2, {});
  PlugIn(options);
  EXPECT_EQ(Find(), 1);
  ExpectFound("col01");
  EXPECT_EQ(machine.gate.CountOf(Call::CreateFileW), 1u);
  const std::tuple<Call, DWORD, const char*> cases[] = {
      {Call::CreateFileW, ERROR_SHARING_VIOLATION, "Warning: CreateFile failed: 32\n"},
      {Call::HidD_GetAttributes, ERROR_GEN_FAILURE, "Error: HidD_GetAttributes failed \n"},
      {Call::HidD_GetPreparsedData, ERROR_GEN_FAILURE, "Error: HidD_GetPreparsedData failed \n"},
      {Call::HidP_GetCaps, ERROR_INVALID_DATA, "Error: HidP_GetCaps failed \n"}};
  for (const auto& [call, error, line] : cases) {
    FailCall(call, error);
    const StdoutCapture out;
    EXPECT_EQ(Find(), 1) << line;
    ExpectFound("col02", line);
    EXPECT_EQ(Lines(), (Strings{Looking, line, Found}));
    EXPECT_EQ(out.Text(), "Caps.UP=0x1 Caps.Usage=0x0\n") << line;
  }
}

TEST_F(HidDiscoveryTest, EndsWhenTheInterfacesCannotBeListed) {
  PlugIn();
  const std::tuple<Call, DWORD, const char*> cases[] = {
      {Call::CM_Get_Device_Interface_List_SizeW, CR_FAILURE,
       "Error 0x13 retrieving device interface list size.\n"},
      {Call::HeapAlloc, ERROR_NOT_ENOUGH_MEMORY,
       "Error allocating memory for device interface list.\n"},
      {Call::CM_Get_Device_Interface_ListW, CR_BUFFER_SMALL,
       "Error 0x1a retrieving device interface list size.\n"}};
  for (const auto& [call, error, line] : cases) {
    FailCall(call, error);
    EXPECT_EQ(Find(), 0) << line;
    EXPECT_EQ(Lines(), Strings{line});
    ExpectNothingFound(line);
  }
}

}  // namespace
