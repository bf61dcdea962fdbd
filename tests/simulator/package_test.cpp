// DfuSe files as the simulator writes them, and why it refuses one.

#include "simulator/package.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "simulator/host_folder.h"
#include "simulator/pack.h"
#include "simulator/package_warnings.h"
#include "simulator/update_verdict.h"

namespace {

using simulator::DfuSeFile;
using simulator::DfuSeTarget;
using Bytes = std::vector<u8>;

DfuSeFile SmallFile() {
  DfuSeFile file{0x1234, 0x5678, 0x9ABC, std::vector<DfuSeTarget>(1)};
  file.targets[0].name = "Keys";
  file.targets[0].elements = {{0x08004000, {1, 2, 3}}, {0x08010000, {}}};
  return file;
}

class PackageTest : public testing::Test {
 protected:
  // What comes of reading such a file: the version, or the reason why it is refused.
  std::string Read(const Bytes& bytes, const std::string& name = "VantrelKb_1.2.3.4.dfu") {
    std::ofstream(folder_ + "/" + name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return ReadAt(name);
  }
  std::string ReadAt(const std::string& name) {
    simulator::PackageRefusal refusal;
    const auto package = simulator::ReadPackage(folder_ + "/" + name, refusal);
    return package.has_value() ? VersionText(package->version) : refusal.reason;
  }

  const simulator::HostFolder own_;
  const std::string& folder_ = own_.path();
};

TEST_F(PackageTest, WritesTheFormatByteForByte) {
  const Bytes digits = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  EXPECT_EQ(simulator::DfuCrc(digits.data(), digits.size()), ~0xCBF43926u)
      << "the known CRC-32 of these digits, without the inversion at its end";

  // 304 bytes before the suffix, one target; then the target's prefix up to its name.
  Bytes expected = {'D', 'f', 'u', 'S', 'e', 1, 0x30, 0x01, 0, 0,   1,   'T', 'a',
                    'r', 'g', 'e', 't', 0,   1, 0,    0,    0, 'K', 'e', 'y', 's'};
  expected.resize(11 + 266, 0);
  // Two elements in 19 bytes, each with address and size; then the suffix.
  const Bytes rest = {19,   0,    0,   0,   2,   0,    0,    0,    0x00, 0x40, 0x00,
                      0x08, 3,    0,   0,   0,   1,    2,    3,    0x00, 0x00, 0x01,
                      0x08, 0,    0,   0,   0,   0xBC, 0x9A, 0x78, 0x56, 0x34, 0x12,
                      0x1A, 0x01, 'U', 'F', 'D', 16,   0,    0,    0,    0};
  expected.insert(expected.end(), rest.begin(), rest.end());
  simulator::SealDfuSe(expected);
  EXPECT_EQ(BuildDfuSe(SmallFile()), expected);
}

TEST_F(PackageTest, SaysWhatIsWrongWithTheContents) {
  constexpr char NoPrefix[] =
      "the file does not begin with the prefix of a DfuSe file of version 1 (at byte 0)";
  constexpr char NoSuffix[] =
      "the file does not end with a DFU suffix of version 1.1a (at byte 304)";
  constexpr char NoTarget[] = "it holds no target for alternate setting 0";
  constexpr char Overrun[] = "an element runs past the end of the file (at byte 285)";
  constexpr char LaterOverrun[] = "an element runs past the end of the file (at byte 304)";
  constexpr char NoTargetPrefix[] = "a target does not begin with its prefix (at byte 11)";
  constexpr char TooShort[] = "the file is too short to be a DfuSe file (at byte 26)";
  const Bytes sound = BuildDfuSe(SmallFile());
  const std::size_t size = sound.size();
  const struct {
    std::size_t at;  // a byte to change
    const char* reason;
  } bytes[] = {
      {0, NoPrefix},        {4, NoPrefix},        {5, NoPrefix},          {size - 5, NoSuffix},
      {size - 6, NoSuffix}, {size - 8, NoSuffix}, {size - 9, NoSuffix},   {size - 10, NoSuffix},
      {17, NoTarget},       {277, "1.2.3.4"},     {11, NoTargetPrefix},   {281, LaterOverrun},
      {289, Overrun},       {6, "1.2.3.4"},       {size - 16, "1.2.3.4"},
  };
  for (const auto& test : bytes) {
    Bytes changed = sound;
    changed[test.at] ^= 0x21;
    simulator::SealDfuSe(changed);
    EXPECT_EQ(Read(changed), test.reason) << "byte " << test.at;
  }

  Bytes changed = sound;
  ++changed[300];
  EXPECT_EQ(Read(changed), "the file's CRC does not match its contents (at byte 316)");
  EXPECT_EQ(Read(Bytes(26, 1)), TooShort);
}

TEST_F(PackageTest, WarnsOfWhatTheServiceTakesWithoutAWord) {
  DfuSeFile sound = SmallFile();
  sound.vendorId = 0x1209;
  sound.productId = 0x0002;
  const auto warnings = [&](const DfuSeFile& file, const std::string& name) {
    const Bytes bytes = BuildDfuSe(file);
    Read(bytes, name);
    simulator::PackageRefusal refusal;
    const auto package = simulator::ReadPackage(folder_ + "/" + name, refusal);
    return package.has_value() ? PackageWarnings(*package) : std::vector{refusal.reason};
  };
  const auto changed = [&](auto change) {
    DfuSeFile file = sound;
    change(file);
    return file;
  };
  constexpr char Usual[] = "VantrelKb_1.2.3.4.dfu";
  EXPECT_EQ(warnings(sound, Usual), std::vector<std::string>());
  EXPECT_EQ(warnings(changed([](auto& file) { file.vendorId = file.productId = 0xFFFF; }), Usual),
            std::vector<std::string>());
  const struct {
    DfuSeFile file;
    std::string name;
    const char* warning;
  } cases[] = {
      {sound, "VantrelKb_1.2.2.12.dfu", "version 1.2.2.1: another digit stands beside it"},
      {sound, "VantrelKb_1x2x2x1.dfu", "version 1.2.2.1: write dots"},
      {SmallFile(), Usual, "the suffix names another device"},
      {changed([](auto& file) {
         file.targets[0].elements[1] = {0x08004002, {9}};
       }),
       Usual, "two of its elements overlap at 0x08004002"},
      {changed([](auto& file) {
         file.targets[0].elements[1] = {0xFFFFFFFF, {1, 2}};
       }),
       Usual, "the element at 0xFFFFFFFF runs past the end of the address space"},
      {changed([](auto& file) { file.targets.push_back(file.targets[0]); }), Usual,
       "a second target for alternate setting 0"},
      {changed([](auto& file) { file.targets[0].statedSize = 18; }), Usual,
       "a target's size does not match its elements (at byte 277)"},
  };
  for (const auto& test : cases) {
    const std::vector<std::string> lines = warnings(test.file, test.name);
    ASSERT_EQ(lines.size(), 1u) << test.warning;
    EXPECT_NE(lines[0].find(test.warning), std::string::npos) << lines[0];
  }
}

TEST_F(PackageTest, SaysWhatIsWrongWithTheFile) {
  constexpr char NoVersion[] =
      "its name carries no version: the characters at positions 10, 12, 14 and 16 (counted from 0) "
      "must be digits, as in VantrelKb_1.2.3.4.dfu";
  constexpr char NotWindows[] =
      "its name holds a character that cannot be in the tablet's file names";
  const std::string longest = "VantrelKb_1.2.3.4" + std::string(153, 'x') + ".dfu";
  const struct {
    std::string name;
    std::string result;
  } cases[] = {
      {"VantrelKb_9.8.7.6.DFU", "9.8.7.6"},
      {"VantrelKb 1x2x3x4 final.dfu", "1.2.3.4"},
      {"VantrelKb_1.2.3.dfu", NoVersion},
      {"VantrelKb_1.2.3.4.bin", "its name does not end in .dfu, so the service does not find it"},
      {"VäntrelKb_1.2.3.4.dfu", "1.2.3.4"},  // characters count, not the host's bytes
      {"VantrelKb_1.2.3.4漢.dfu", NotWindows},
      {"VantrelKb_1.2.3.4\\.dfu", NotWindows},
      {longest, "1.2.3.4"},
      {"x" + longest,
       "its name is too long for the service's path, which leaves it 174 characters"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(Read(BuildDfuSe(SmallFile()), test.name), test.result) << test.name;
  }

  EXPECT_EQ(ReadAt("VantrelKb_0.0.0.0.dfu"), "there is no such file");
  std::filesystem::create_directory(folder_ + "/VantrelKb_5.5.5.5.dfu");
  EXPECT_EQ(ReadAt("VantrelKb_5.5.5.5.dfu"), "it is not a file");
  // A file that opens and gives an error where it begins.
  std::filesystem::create_symlink("/proc/self/mem", folder_ + "/VantrelKb_6.6.6.6.dfu");
  EXPECT_EQ(ReadAt("VantrelKb_6.6.6.6.dfu"), "it cannot be read");
}

}  // namespace
