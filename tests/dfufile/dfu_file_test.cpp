// The reader of the firmware package: what it takes, what it refuses, and how it goes on after
// that.

#include "dfufile/dfu_file.h"

#include <filesystem>
#include <memory>
#include <string>

#include "common/status.h"
#include "tests/dfufile/image_records.h"
#include "tests/support/package_file_test.h"
#include "tests/support/refused_memory.h"

namespace {

using Bytes = std::vector<u8>;
using LogLines = std::vector<std::string>;
using simulator::DfuSeTarget;

class DfuFileTest : public PackageFileTest {
 protected:
  void SetUp() override { WritePackageFile(SoundFile()); }

  // One target of one element, longer than what the checksum reads at once.
  static Bytes SoundFile() { return FileOf({Target(0, {{0x08000000, PatternAt(0, 10'000)}})}); }

  // Ends the test's life with the file if it is still open.
  void TearDown() override {
    Close();
    image.reset();
    EXPECT_FALSE(HasFilesOpen());
    EXPECT_EQ(simulator::ProductMemory().blocks, 0u);
    PackageFileTest::TearDown();
  }

  u32 Open() {
    Close();
    return OpenDfuFile(&file, nullptr);
  }
  u32 Open(const Bytes& bytes) {
    WritePackageFile(bytes);
    return Open();
  }
  void Close() {
    CloseDfuFile(file);
    file = nullptr;
  }

  u32 Read(u32 targetIndex) {
    image.reset();
    DfuImage* read = nullptr;
    const u32 status = ReadTargetImage(file, targetIndex, &read);
    image.reset(read);
    EXPECT_EQ(file->Status, status);
    EXPECT_EQ(read != nullptr, status == StatusSuccess);
    return status;
  }

  u64 CountReadsOfOpening() {
    const u64 before = machine.gate.CountOf(platform::Call::ReadBinaryFile);
    Open();
    Close();
    return machine.gate.CountOf(platform::Call::ReadBinaryFile) - before;
  }

  // Opening fails with the status, writes the lines and leaves nothing behind.
  void ExpectRefused(u32 status, const LogLines& lines) {
    LookFromHere();
    DfuFile* const untouched = reinterpret_cast<DfuFile*>(0x10);
    DfuFile* handle = untouched;
    u8 targetCount = 0x5A;
    EXPECT_EQ(OpenDfuFile(&handle, &targetCount), status);
    EXPECT_EQ(Lines(), lines);
    EXPECT_EQ(handle, untouched);
    EXPECT_EQ(targetCount, 0x5A);
    EXPECT_EQ(dfuFileRegistry.First(), nullptr);
    EXPECT_FALSE(HasFilesOpen());
  }

  DfuFile* file = nullptr;
  std::unique_ptr<DfuImage> image;
};

TEST_F(DfuFileTest, TellsWhatIsWrong) {
  const Bytes sound = SoundFile();
  const std::size_t suffix = sound.size() - simulator::DfuSeSuffixBytes;
  const auto cutTo = [&](std::size_t size) {
    return Bytes(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(size));
  };
  const auto sealedWith = [&](std::size_t offset, u8 value) {
    Bytes bytes = sound;
    bytes[offset] = value;
    simulator::SealDfuSe(bytes);
    return bytes;
  };
  Bytes wrongInBoth = sealedWith(0, 'd');
  wrongInBoth[5] = 2;
  Bytes invertedCrc = sound;
  for (std::size_t i = sound.size() - 4; i < sound.size(); ++i) {
    invertedCrc[i] = static_cast<u8>(~invertedCrc[i]);
  }
  struct {
    const char* what;
    Bytes bytes;
    const char* line;
  } const cases[] = {
      {"empty", {}, "Read Prefix fail\n"},
      {"10 bytes", cutTo(10), "Read Prefix fail\n"},
      {"11 bytes", cutTo(11), "Read suffix fail\n"},
      {"15 bytes", cutTo(15), "Read suffix fail\n"},
      {"cut behind its targets", cutTo(suffix), "Suffix not match\n"},
      {"version 0", sealedWith(5, 0), "Prefix version not match\n"},
      {"version 2", sealedWith(5, 2), "Prefix version not match\n"},
      {"signature", sealedWith(0, 'd'), "Prefix Signature not match\n"},
      {"signature's end", sealedWith(4, 'E'), "Prefix Signature not match\n"},
      {"version and signature", wrongInBoth, "Prefix version not match\n"},
      {"DFU version, low", sealedWith(suffix + 6, 0x00), "Suffix not match\n"},
      {"DFU version, high", sealedWith(suffix + 7, 0x00), "Suffix not match\n"},
      {"suffix signature U", sealedWith(suffix + 8, 'D'), "Suffix not match\n"},
      {"suffix signature F", sealedWith(suffix + 9, 'f'), "Suffix not match\n"},
      {"suffix signature D", sealedWith(suffix + 10, 'U'), "Suffix not match\n"},
      {"suffix length", sealedWith(suffix + 11, 17), "Suffix not match\n"},
      {"the usual CRC", invertedCrc, "Check CRC fail\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    WritePackageFile(c.bytes);
    ExpectRefused(StatusBadFile, {"File is opened\n", c.line});
  }
}

TEST_F(DfuFileTest, RefusesAFileThatIsNotThere) {
  machine.drive.Remove(packagePath);
  ExpectRefused(StatusFileNotOpened, {"Open dfu file fail\n"});
}

TEST_F(DfuFileTest, RefusesAFileOfTwoGigabytes) {
  std::filesystem::resize_file(machine.drive.HostPath(packagePath), u64{1} << 31);
  ExpectRefused(StatusBadFile, {"File is opened\n", "Read suffix fail\n"});
}

TEST_F(DfuFileTest, NoticesAChangeOfAnyByte) {
  const Bytes sound = FileOf({Target(0, {{0x08000000, {1, 2, 3}}})});
  for (std::size_t at = 0; at < sound.size(); ++at) {
    Bytes changed = sound;
    changed[at] ^= 0x10;
    EXPECT_EQ(Open(changed), StatusBadFile) << "byte " << at;
  }
}

// The prefix and the suffix of this one share their bytes; its checksum was computed elsewhere.
TEST_F(DfuFileTest, OpensTheShortestFileThereCanBe) {
  WritePackageFile({'D', 'f', 'u', 'S', 'e', 1, 26, 1, 'U', 'F', 'D', 16, 0xAA, 0xE3, 0xA6, 0xF4});
  u8 targetCount = 0;
  ASSERT_EQ(OpenDfuFile(&file, &targetCount), StatusSuccess);
  EXPECT_EQ(targetCount, 'D');
  EXPECT_EQ(file->TargetCount, 'D');
  EXPECT_EQ(file->VendorId, 0x0165);
  EXPECT_EQ(file->ProductId, 0x5375);
  EXPECT_EQ(file->DeviceVersion, 0x6644);
  EXPECT_EQ(Read(0), StatusBadFile);
}

TEST_F(DfuFileTest, TakesAnyImageSizeAndIdentifiersAndNoTargets) {
  const Bytes sound = FileOf({});
  const std::size_t suffix = sound.size() - simulator::DfuSeSuffixBytes;
  for (const std::size_t at : {std::size_t{6}, suffix, suffix + 2, suffix + 4}) {
    Bytes bytes = sound;
    bytes[at] ^= 0xFF;
    simulator::SealDfuSe(bytes);
    EXPECT_EQ(Open(bytes), StatusSuccess) << "byte " << at;
    EXPECT_EQ(file->TargetCount, 0);
  }
}

TEST_F(DfuFileTest, TellsWhatCouldNotBeRead) {
  std::vector<LogLines> outcomes;
  const u64 reads = CountReadsOfOpening();
  for (u64 read = 1; read <= reads; ++read) {
    LookFromHere();
    FailReadsFrom(read);
    const u32 status = Open();
    StopFailing();
    EXPECT_EQ(status, Lines().size() == 1 ? StatusSuccess : StatusBadFile);
    if (outcomes.empty() || outcomes.back() != Lines()) {
      outcomes.push_back(Lines());
    }
  }
  // At the last read the file has been tested.
  EXPECT_EQ(outcomes, (std::vector<LogLines>{
                          {"File is opened\n", "Read Prefix fail\n"},
                          {"File is opened\n", "Read suffix fail\n"},
                          {"File is opened\n", "Fail to read CRC", "Check CRC fail\n"},
                          {"File is opened\n"},
                      }));
}

// A body that cannot be read counts as one whose checksum is all ones.
TEST_F(DfuFileTest, ComparesTheChecksumEvenIfTheBodyCannotBeRead) {
  Bytes bytes = SoundFile();
  std::fill(bytes.end() - 4, bytes.end(), u8{0xFF});
  WritePackageFile(bytes);
  FailReadsFrom(CountReadsOfOpening());

  EXPECT_EQ(Open(), StatusSuccess);
  EXPECT_EQ(Lines().back(), "Fail to read CRC");
  EXPECT_EQ(Read(0), StatusBadFile);
}

TEST_F(DfuFileTest, ReadsTargetsInAnyOrder) {
  const std::vector<DfuSeTarget> targets = {
      Target(3, {{0x04030201, PatternAt(1, 70'000)}, {0x10, {}}, {0, {9}}}),
      Target(0, {}),
      Target(255, {{0xFFFFFFFF, {1}}}),
  };
  Bytes bytes = FileOf(targets);
  // What the file says of their number does not keep anyone from reading one.
  bytes[10] = 1;
  simulator::SealDfuSe(bytes);
  ASSERT_EQ(Open(bytes), StatusSuccess);

  for (const u32 index : {1u, 0u, 2u, 0u}) {
    SCOPED_TRACE(index);
    ASSERT_EQ(Read(index), StatusSuccess);
    EXPECT_EQ(image->AlternateSetting, targets[index].alternateSetting);
    EXPECT_EQ(image->Valid, 1u);
    EXPECT_EQ(BlocksOf(*image), targets[index].elements);
    EXPECT_FALSE(IsRegisteredImage(image.get()));
  }
}

TEST_F(DfuFileTest, TakesTheNameIfTheTargetIsNamed) {
  const std::string longest(254, 'n');
  struct {
    u32 named;
    std::string name;
    std::string taken;
  } const cases[] = {
      {1, "Firmware", "Firmware"},
      {0x01000000, "Firmware", "Firmware"},
      {0, "Firmware", ""},
      {1, "", ""},
      {1, std::string("short\0rest", 10), "short"},
      {1, longest, longest},
      {1, longest + "n", longest},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    DfuSeTarget target = Target(0, {{1, {2}}});
    target.named = c.named;
    target.name = c.name;
    ASSERT_EQ(Open(FileOf({target})), StatusSuccess);
    ASSERT_EQ(Read(0), StatusSuccess);
    EXPECT_EQ(image->Named, c.named);
    EXPECT_EQ(std::string(image->Name, ImageNameBytes),
              c.taken + std::string(ImageNameBytes - c.taken.size(), '\0'));
  }
}

// The element's bytes may be those of the suffix, but not more than the file has.
TEST_F(DfuFileTest, RefusesElementsThatRunPastTheEndOfTheFile) {
  const u32 left = 3 + simulator::DfuSeSuffixBytes;
  struct {
    u32 size;
    u32 count;
    u32 status;
  } const cases[] = {
      {3, 1, StatusSuccess},
      {left, 1, StatusSuccess},
      {left + 1, 1, StatusBadElements},
      {0x7FFFFFFF, 1, StatusBadElements},
      {0xFFFFFFFF, 1, StatusBadElements},
      {left, 2, StatusBadElements},
      {left - 5, 2, StatusBadElements},
      {0, 0xFFFFFFFF, StatusBadElements},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.count << " elements of " << c.size << " bytes");
    DfuSeTarget broken = Target(0, {{0x08000000, {1, 2, 3}}});
    broken.statedElementCount = c.count;
    Bytes bytes = FileOf({Target(1, {}), broken});
    const std::size_t header = bytes.size() - left - 8;
    for (std::size_t i = 0; i < 4; ++i) {
      bytes[header + 4 + i] = static_cast<u8>(c.size >> (8 * i));
    }
    simulator::SealDfuSe(bytes);
    ASSERT_EQ(Open(bytes), StatusSuccess);

    // A first element that is too long is refused before memory is asked for its data.
    const bool firstTooLong = c.status != StatusSuccess && c.count == 1;
    {
      const RefusedMemory refused(firstTooLong ? 2 : 100);
      EXPECT_EQ(Read(1), c.status);
      EXPECT_FALSE(refused.met());
    }
    // After a read that came up short the stream is of no more use.
    EXPECT_EQ(Read(0), c.status == StatusSuccess ? StatusSuccess : StatusBadFile);
  }
}

TEST_F(DfuFileTest, PassesOverATargetByTheSizeThatItStates) {
  const DfuSeTarget first = Target(0, {{0x08000000, PatternAt(0, 600)}});
  struct {
    const char* what;
    u32 statedSize;
    u32 afterwards;
  } const cases[] = {
      {"short by one", 607, StatusSuccess},
      {"long by one", 609, StatusSuccess},
      {"beyond the end", 0x7FFFFFF0, StatusBadFile},
      {"far beyond the end", 0xFFFFFFF0, StatusBadFile},
      {"backwards, if it had a sign", static_cast<u32>(-274), StatusBadFile},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    DfuSeTarget stated = first;
    stated.statedSize = c.statedSize;
    ASSERT_EQ(Open(FileOf({stated, first})), StatusSuccess);
    EXPECT_EQ(Read(0), StatusSuccess);
    EXPECT_EQ(Read(1), StatusBadFile);
    // Only a prefix that could not be read spoils the stream, not one that is none.
    EXPECT_EQ(Read(0), c.afterwards);
  }
}

TEST_F(DfuFileTest, ReadsNoElementsBehindTheEndThatWasChecked) {
  ASSERT_EQ(Open(FileOf({Target(0, {})})), StatusSuccess);
  WritePackageFile(FileOf({Target(0, {}), Target(0, {{1, PatternAt(1, 100)}})}));
  EXPECT_EQ(Read(1), StatusBadElements);
}

TEST_F(DfuFileTest, UsesOnlyFilesThatAreOpen) {
  ASSERT_EQ(Open(), StatusSuccess);
  DfuFile* const closed = file;
  Close();
  EXPECT_FALSE(IsRegisteredFile(closed));
  CloseDfuFile(closed);
  DfuImage* read = nullptr;
  EXPECT_EQ(ReadTargetImage(closed, 0, &read), StatusBadFile);
  EXPECT_EQ(read, nullptr);
}

}  // namespace
