#include "dfudevice/memory_map_parser.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "common/status.h"

namespace {

// A text and the record that it was parsed into, with marks in it that a refused text leaves alone.
class ParsedMap {
 public:
  explicit ParsedMap(const std::string& text) {
    map.alternateSetting = 5;
    map.name[0] = '!';
    // Alone in memory and without a NUL, so that a look beyond its end is noticed.
    const std::vector<char> bytes(text.begin(), text.end());
    result = ParseMemoryMap(bytes.data(), bytes.size(), map);
  }
  ~ParsedMap() { delete[] map.sectors; }
  ParsedMap(const ParsedMap&) = delete;
  ParsedMap& operator=(const ParsedMap&) = delete;

  bool isUntouched() const {
    return map.alternateSetting == 5 && map.name[0] == '!' && map.sectorCount == 0 &&
           map.sectors == nullptr;
  }

  u32 result = 0;
  MemoryMap map = {};
};

// Address (two where they differ), size and attribute letter, '~' for a NUL: " 8000000:512:g".
// " -" is a sector that is not selected.
std::string DescribeSector(const MemorySector& sector, u32 index) {
  if (sector.selected != 1) {
    return " -";
  }
  char text[64];
  std::snprintf(text, sizeof(text), sector.address == sector.secondAddress ? " %x" : " %x-%x",
                sector.address, sector.secondAddress);
  const char letter = sector.attributes == 0 ? '~' : sector.attributes;
  return text + (":" + std::to_string(sector.size)) + ":" + letter +
         (sector.index == index ? "" : " with a wrong index");
}

std::string ParseAndDescribe(const std::string& text) {
  const ParsedMap parsed(text);
  if (parsed.result != 1) {
    return parsed.result == StatusNothingToWorkOn && parsed.isUntouched() ? "refused" : "broken";
  }
  std::string description = std::string(parsed.map.name) + "|";
  for (u32 i = 0; i < parsed.map.sectorCount; ++i) {
    description += DescribeSector(parsed.map.sectors[i], i);
  }
  return description;
}

TEST(MemoryMapParserTest, ReadsMaps) {
  const std::pair<std::string, std::string> cases[] = {
      {"@Flash/0x0/04*016Kg,02*064Kg",
       "Flash| 0:16384:g 4000:16384:g 8000:16384:g c000:16384:g 10000:65536:g 20000:65536:g"},
      {"@Internal Flash  /0x08000000/01*128Ka", "Internal Flash  | 8000000:131072:a"},
      {"@/0/1*1Ka", "| 0:1024:a"},
      {"@F/0x1000/2*1Ka/0x8000/1*2Kg,1*1Md",
       "F| 1000:1024:a 1400:1024:a 8000:2048:g 8800:1048576:d"},
      {"@F/0x1000/1*1Kg/", "F| 1000:1024:g"},

      // Units and attribute letters.
      {"@F/0/01*512 e", "F| 0:512:e"},
      {"@F/0/01*016kg", "F| 0:16:g"},
      {"@F/0/1*3mg,1*3Bb", "F| 0:3:g 3:3:b"},

      // Addresses.
      {"@F/100-9000/2*1Ka", "F| 100-9000:1024:a 500-9400:1024:a"},
      {"@F/A-0xB-C/1*1 a", "F| a-b:1:a"},
      {"@F/0--2/1*1 a", "F| 0-fffffffe:1:a"},
      {"@F/ +0X0aF/1*1 a", "F| af:1:a"},
      {"@F/12xyz/1*1 a", "F| 12:1:a"},
      {"@F/00A/1*1 a", "F| a:1:a"},
      {"@F//1*1 a", "F| 0:1:a"},
      {"@F/123456789/1*1 a", "F| ffffffff:1:a"},
      {"@F/FFFFFC00/2*1Ka", "F| fffffc00:1024:a 0:1024:a"},

      // Numbers are decimal, and the largest size just fits.
      {"@F/0/ +02*010 a,\t1*1 b", "F| 0:10:a a:10:a 14:1:b"},
      {"@F/0/\x0E"
       "1*1 a",
       "F| -"},
      {"@F/0/0*1Kg,1*2Kg,0*4Kg", "F| 0:2048:g"},
      {"@F/0/1*0Kg,1*Kg", "F| 0:0:g 0:0:g"},
      {"@F/0/1*4294967295 g", "F| 0:4294967295:g"},
      {"@F/0/1*4194303Kg,1*1 a", "F| 0:4294966272:g fffffc00:1:a"},

      // The text ends, or has a NUL, in the middle of a run.
      {"@F/0/1*16", "F| 0:16:~"},
      {"@F/0/1*1Kg,1*16K", "F| 0:1024:g 400:16384:~"},
      {"@F/0/1*1Kg,", "F| 0:1024:g"},
      {std::string("@F/0/1*1Kg\0,1*1Kg", 17), "F| 0:1024:g"},

      // Sectors that are counted but not described.
      {"@F/0/1*1Kg1*2Kg", "F| 0:1024:g -"},
      {"@F/0/1*16,2*1Kg", "F| 0:16:2 - -"},
      {"@F/2*/1*1Kg", "F| 2:1024:g - -"},
      {"@F/1*1Kg", "F| -"},
      {"@F/0/-4*016Kg,1*1Kg", "F| 0:1024:g - - - -"},
      {"@F/0/x4*016Kg", "F| - - - -"},
      {"@F/0/x1*1Kg/", "F| -"},
      {"@F/0/1*1Kg,/0x8000/2*1Kg", "F| 0:1024:g - -"},
      {"@F/0/1* 16Kg", "F| 0:16:1"},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(ParseAndDescribe(text), expected) << text;
  }
}

TEST(MemoryMapParserTest, RefusesWhatIsNoMapOrNotToBeTrusted) {
  const std::string cases[] = {
      "",
      "Flash/0/1*1Kg",
      "@Flash/",
      "@Flash/0x08000000/",
      "@1*1Kg/0/",
      std::string("@F\0/0/1*1Kg", 11),

      // No sector, or more than can be meant.
      "@F/0/*16Kg",
      "@F/0/16 *16Kg",
      "@F/0/65537*1Kg",
      "@F/0/40000*1Kg,40000*1Kg",
      "@F/0/18446744073709551617*1Kg",

      // A run has more sectors than the digits before each "*" add up to.
      "@F/0/4 1*016Kg",
      "@F/0/4 0*1Kg,1*2Kg",
      "@F/0/2 *1Kg,1*1Kg",

      // Sizes below 0 or beyond 32 bits.
      "@F/0/1*-16Kg",
      "@F/0/1*4294967296 g",
      "@F/0/1*4194304Kg",
      "@F/0/1*4096Mg",
      "@F/0/1*18446744073709551632 g",
  };
  for (const std::string& text : cases) {
    EXPECT_EQ(ParseAndDescribe(text), "refused") << text;
  }
}

TEST(MemoryMapParserTest, HoldsTheMostSectors) {
  const ParsedMap parsed("@F/0/00065535*1Ka,1*1Kg");
  ASSERT_EQ(parsed.result, 1u);
  ASSERT_EQ(parsed.map.sectorCount, MemoryMapMaxSectors);
  EXPECT_EQ(DescribeSector(parsed.map.sectors[65535], 65535), " 3fffc00:1024:g");
}

TEST(MemoryMapParserTest, CutsLongNamesAndTexts) {
  const std::string longName(300, 'n');
  EXPECT_EQ(ParseAndDescribe("@" + longName + "/0/1*1Ka"), longName.substr(0, 259) + "| 0:1024:a");

  // 511 characters are looked at: the attribute letter is the last of them or the first beyond.
  EXPECT_EQ(ParseAndDescribe("@" + std::string(502, 'n') + "/0/1*1 a"),
            std::string(259, 'n') + "| 0:1:a");
  EXPECT_EQ(ParseAndDescribe("@" + std::string(503, 'n') + "/0/1*1 a"),
            std::string(259, 'n') + "| 0:1:~");
}

}  // namespace
