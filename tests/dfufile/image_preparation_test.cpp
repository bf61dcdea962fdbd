// What is made of the package when the keyboard is there as a DFU device: the erase that is
// launched, and the image that waits to be written.

#include "dfufile/image_preparation.h"

#include <atomic>
#include <cstring>

#include "dfudevice/dfu_device_list.h"
#include "dfudevice/memory_map.h"
#include "dfuengine/operation_registry.h"
#include "dfuengine/session_values.h"
#include "dfuengine/update_session.h"
#include "simulator/hid_side.h"
#include "tests/dfufile/image_records.h"
#include "tests/support/package_file_test.h"
#include "tests/support/refused_memory.h"

namespace {

using simulator::DfuSeTarget;

constexpr u32 Base = simulator::DefaultFlashAddress;
constexpr char UnableLine[] = "Unable to find data for that device/target from the file ...";

class ImagePreparationTest : public PackageFileTest {
 protected:
  // Six sectors of 1 KiB with all rights, unless the test wants others.
  void PlugInDevice(const std::vector<simulator::SectorRun>& flash = {{6, 1024, 'g'}},
                    u16 transferSize = 1024) {
    simulator::KeyboardOptions options;
    options.flash = {{Base, flash}};
    options.firmware = {};
    options.bootloader.transferSize = transferSize;
    PlugInInDfuMode(options);
    ASSERT_EQ(RefreshDfuDevices(), 1);
    LookFromHere();
  }

  void WriteTargets(const std::vector<DfuSeTarget>& targets) { WritePackageFile(FileOf(targets)); }

  // What the erase under way was launched with.
  static OperationContext LaunchedErase() {
    OperationContext context{};
    OperationThread* const operation = FindOperation(currentOperationId);
    EXPECT_NE(operation, nullptr);
    if (operation != nullptr) {
      operation->GetContext(context);
    }
    return context;
  }

  static void EndErase() {
    OperationContext context{};
    FinishOperation(&context);
    currentOperationId = 0;
    ReleaseImage(&context.image);
  }

  void ExpectNothingPrepared() {
    EXPECT_EQ(CountLines(UnableLine), 1u);
    EXPECT_EQ(currentOperationId, 0u);
    EXPECT_EQ(upgradeImage, nullptr);
    EXPECT_TRUE(RegisteredImages().empty());
    EXPECT_FALSE(HasFilesOpen());
    EXPECT_TRUE(DfuRequests().empty());
  }

  void TearDown() override {
    EndErase();
    ReleaseImage(&upgradeImage);
    ReleaseLeftoverImages();
    EmptyMemoryMapTable(memoryMapTable);
    EXPECT_EQ(simulator::ProductMemory().blocks, 0u);
    PackageFileTest::TearDown();
  }
};

TEST_F(ImagePreparationTest, CutsOneCopyForErasingAndOneForWriting) {
  // Erasable are 'c', 'f' and 'g', writable 'e', 'f' and 'g'.
  PlugInDevice({{1, 1024, 'g'}, {1, 1024, 'a'}, {1, 1024, 'c'}, {1, 1024, 'e'}, {2, 1024, 'f'}});
  WriteTargets({Target(0, {{Base + 4196, PatternAt(Base + 4196, 1000)},
                           {Base + 512, PatternAt(Base + 512, 3328)}})});
  PrepareTargetImage();

  const OperationContext erase = LaunchedErase();
  EXPECT_EQ(BlocksOf(*erase.image),
            (Blocks{{Base, {}}, {Base + 2048, {}}, {Base + 4096, {}}, {Base + 5120, {}}}));
  EXPECT_EQ(BlocksOf(*upgradeImage), (Blocks{{Base + 4196, PatternAt(Base + 4196, 924)},
                                             {Base + 5120, PatternAt(Base + 5120, 76)},
                                             {Base + 512, PatternAt(Base + 512, 512)},
                                             {Base + 3072, PatternAt(Base + 3072, 768)}}));
  EXPECT_EQ(RegisteredImages(), (std::vector<const DfuImage*>{erase.image, upgradeImage}));
  EXPECT_EQ(erase.operationCode, OperationErase);
  EXPECT_EQ(std::memcmp(&erase.guidA, &OperationGuidA, sizeof(GUID)), 0);
  EXPECT_STREQ(erase.devicePath, dfuDeviceList.paths[0]);
  EXPECT_EQ(CountLines(UnableLine), 0u);
}

TEST_F(ImagePreparationTest, TakesTheFirstTargetForAlternateSettingZero) {
  PlugInDevice();
  struct {
    std::vector<int> alternateSettings;
    u32 chosen;
  } const cases[] = {{{0}, 0}, {{0, 0}, 0}, {{1, 0}, 1}, {{255, 1, 0, 0}, 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.alternateSettings));
    std::vector<DfuSeTarget> targets;
    for (const int alternateSetting : c.alternateSettings) {
      const u8 index = static_cast<u8>(targets.size());
      targets.push_back(Target(static_cast<u8>(alternateSetting), {{Base, {index}}}));
    }
    WriteTargets(targets);
    PrepareTargetImage();

    ASSERT_NE(upgradeImage, nullptr);
    EXPECT_EQ(BlocksOf(*upgradeImage), targets[c.chosen].elements);
    EXPECT_EQ(RegisteredImages().size(), 2u);
    EndErase();
  }
}

// The device's settings and the file's targets are numbered each for itself.
TEST_F(ImagePreparationTest, CutsToTheFirstMapWhateverItsNumber) {
  simulator::KeyboardOptions options;
  options.alternateSettings = {{3, "@First/0x08000000/2*1Kg"}, {0, "@Second/0x08000000/1*4Kg"}};
  PlugInInDfuMode(options);
  ASSERT_EQ(RefreshDfuDevices(), 1);
  WriteTargets({Target(0, {{Base, PatternAt(Base, 1500)}})});
  PrepareTargetImage();
  EXPECT_EQ(BlocksOf(*LaunchedErase().image), (Blocks{{Base, {}}, {Base + 1024, {}}}));
  EXPECT_EQ(BlocksOf(*upgradeImage),
            (Blocks{{Base, PatternAt(Base, 1024)}, {Base + 1024, PatternAt(Base + 1024, 476)}}));
}

TEST_F(ImagePreparationTest, StartsNothingWithoutAReadableTarget) {
  PlugInDevice();
  const DfuSeTarget good = Target(0, {{Base, {1}}});
  DfuSeTarget unreadable = good;
  unreadable.statedElementCount = 1000;
  struct {
    const char* what;
    std::vector<DfuSeTarget> targets;
  } const cases[] = {
      {"no target", {}},
      {"another alternate setting", {Target(1, {{Base, {1}}})}},
      {"elements beyond the end", {unreadable}},
      {"a good one behind it", {unreadable, good}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    WriteTargets(c.targets);
    LookFromHere();
    PrepareTargetImage();
    ExpectNothingPrepared();
  }

  machine.drive.Remove(packagePath);
  LookFromHere();
  PrepareTargetImage();
  ExpectNothingPrepared();
  EXPECT_EQ(CountLines("Open dfu file fail\n"), 1u);
}

TEST_F(ImagePreparationTest, PassesOverATargetThatMemoryIsRefusedFor) {
  PlugInDevice();
  WriteTargets({Target(0, {{Base, {1}}}), Target(0, {{Base, {2}}})});
  // The first request is for the open file, the second for the first target's image.
  const RefusedMemory refused(2);
  PrepareTargetImage();
  ASSERT_NE(upgradeImage, nullptr);
  EXPECT_EQ(BlocksOf(*upgradeImage), (Blocks{{Base, {2}}}));
}

TEST_F(ImagePreparationTest, KeepsTheEarlierUpgradeImageUntilThereIsANewOne) {
  PlugInDevice();
  WriteTargets({Target(0, {{Base, {1}}})});
  PrepareTargetImage();
  EndErase();
  const DfuImage* const earlier = upgradeImage;

  WriteTargets({Target(1, {{Base, {2}}})});
  PrepareTargetImage();
  EXPECT_EQ(upgradeImage, earlier);
  EXPECT_EQ(RegisteredImages(), std::vector<const DfuImage*>{earlier});
  EXPECT_EQ(BlocksOf(*upgradeImage), (Blocks{{Base, {1}}}));

  WriteTargets({Target(0, {{Base, {3}}})});
  PrepareTargetImage();
  EXPECT_EQ(RegisteredImages().size(), 2u);
  EXPECT_EQ(BlocksOf(*upgradeImage), (Blocks{{Base, {3}}}));
}

TEST_F(ImagePreparationTest, ErasesNothingForAnImageWithMoreBlocksThanNumbers) {
  PlugInDevice({{1, 128 * 1024, 'g'}}, 2);
  for (const auto& [bytes, launched] : {std::pair{131'069u, false}, {131'068u, true}}) {
    SCOPED_TRACE(bytes);
    WriteTargets({Target(0, {{Base, PatternAt(Base, bytes)}})});
    LookFromHere();
    PrepareTargetImage();
    if (launched) {
      EXPECT_NE(currentOperationId, 0u);
    } else {
      ExpectNothingPrepared();
    }
  }
}

TEST_F(ImagePreparationTest, ErasesNothingWithoutAMemoryMap) {
  PlugInDevice();
  WriteTargets({Target(0, {{Base, {1}}})});
  EmptyMemoryMapTable(memoryMapTable);
  PrepareTargetImage();
  ExpectNothingPrepared();
}

TEST_F(ImagePreparationTest, ErasesNothingWhenMemoryIsRefused) {
  PlugInDevice();
  WriteTargets({Target(0, {{Base + 1000, PatternAt(0, 5000)}, {Base, {1}}})});
  std::size_t request = 1;
  for (bool met = true; met; ++request) {
    SCOPED_TRACE(request);
    LookFromHere();
    {
      const RefusedMemory refused(request);
      PrepareTargetImage();
      met = refused.met();
    }
    EXPECT_EQ(currentOperationId == 0, met);
    if (met && upgradeImage == nullptr) {
      ExpectNothingPrepared();
    } else {
      EXPECT_EQ(CountLines(UnableLine), 0u);
      EXPECT_EQ(RegisteredImages().size(), 2u);
    }
    if (met) {
      EXPECT_TRUE(DfuRequests().empty());
      PrepareTargetImage();
      EXPECT_EQ(RegisteredImages().size(), 2u);
      EXPECT_EQ(BlocksOf(*upgradeImage).size(), 7u);
    }
    EndErase();
    ReleaseImage(&upgradeImage);
  }
  EXPECT_GT(request, 20u);
}

TEST_F(ImagePreparationTest, ReleasesTheEraseListThatALaunchLeftBehind) {
  PlugInDevice();
  WriteTargets({Target(0, {{Base, {1}}})});
  for (int run = 0; run < 3; ++run) {
    FailCall(platform::Call::CreateFileW, ERROR_ACCESS_DENIED);
    PrepareTargetImage();
    EXPECT_EQ(currentOperationId, 0u);
    EXPECT_TRUE(IsRegisteredImage(upgradeImage));
    EXPECT_EQ(RegisteredImages().size(), 2u);
  }
  EXPECT_EQ(CountLines(UnableLine), 0u);
  EXPECT_TRUE(DfuRequests().empty());

  PrepareTargetImage();
  EXPECT_EQ(RegisteredImages(),
            (std::vector<const DfuImage*>{LaunchedErase().image, upgradeImage}));
}

// Keyboards come and go while a refresh lists, and lists again to open the first of them.
TEST_F(ImagePreparationTest, ErasesOnlyTheDeviceThatWasDecoded) {
  constexpr char FirstPath[] = "\\\\?\\usb#first";
  constexpr char SecondPath[] = "\\\\?\\usb#second";
  simulator::KeyboardOptions options;
  options.dfuPath = simulator::Widen(FirstPath);
  simulator::VirtualKeyboard& first = PlugInInDfuMode(options);
  options.dfuPath = simulator::Widen(SecondPath);
  options.unit = u"9&9";
  PlugInInDfuMode(options);
  WriteTargets({Target(0, {{Base, {1}}})});

  const struct {
    const char* what;
    std::function<void()> whenListed;
    std::function<void()> whenRefreshed;
    const char* slot;
    const char* erased;  // null for none
  } cases[] = {
      {"the first leaves", [&] { first.Detach(); }, [] {}, FirstPath, SecondPath},
      {"the first comes", [&] { first.AttachInDfuMode(); }, [] {}, SecondPath, FirstPath},
      {"the first is back before the erase", [&] { first.Detach(); },
       [&] { first.AttachInDfuMode(); }, FirstPath, nullptr},
      {"the first was listed without its path", [] {}, [] {}, "", FirstPath},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    int listings = 0;
    platform::Observation watch = machine.gate.Observe([&](platform::Call call) {
      if (call == platform::Call::CM_Get_Device_Interface_ListW && ++listings == 2) {
        each.whenListed();
      }
    });
    if (*each.slot == '\0') {
      FailCall(platform::Call::CM_Get_Device_Interface_PropertyW, CR_FAILURE);
    }
    ASSERT_EQ(RefreshDfuDevices(), 1);
    watch.reset();
    EXPECT_STREQ(dfuDeviceList.paths[0], each.slot);

    each.whenRefreshed();
    PrepareTargetImage();
    EXPECT_EQ(currentOperationId != 0, each.erased != nullptr);
    if (each.erased != nullptr && currentOperationId != 0) {
      EXPECT_STREQ(LaunchedErase().devicePath, each.erased);
    }
    EndErase();
  }
}

// A path that were cut could be another device's.
TEST_F(ImagePreparationTest, ErasesNoDeviceWhosePathDoesNotFit) {
  for (const std::size_t chars : {258u, 259u}) {
    SCOPED_TRACE(chars);
    const std::string path = "\\\\?\\" + std::string(chars - 4, 'p');
    simulator::KeyboardOptions options;
    options.dfuPath = simulator::Widen(path);
    simulator::VirtualKeyboard& keyboard = PlugInInDfuMode(options);
    ASSERT_EQ(RefreshDfuDevices(), 1);
    WriteTargets({Target(0, {{Base, {1}}})});
    PrepareTargetImage();
    ASSERT_EQ(currentOperationId != 0, chars == 258);
    if (chars == 258) {
      EXPECT_EQ(LaunchedErase().devicePath, path);
    }
    EndErase();
    keyboard.Detach();
  }
}

}  // namespace
