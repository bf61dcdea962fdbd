// Images cut to the device's memory, and blank images of it.

#include "dfufile/image_cuts.h"

#include <cstdlib>
#include <sstream>
#include <string>

#include "common/status.h"
#include "tests/dfufile/image_records.h"
#include "tests/support/refused_memory.h"

namespace {

constexpr u32 Erase = 3;
constexpr u32 Download = 4;

// An element, a sector or a piece of an element.
struct Span {
  u32 address;
  u32 size;
  char access;
  u32 selected;
  u32 element;
};

// Reads "address+size address+size ...". A sector may have its access letter behind it and then '!'
// when it is not selected; a piece may have ':' and the number of the element that it is from.
std::vector<Span> Spans(const std::string& text) {
  std::vector<Span> spans;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    Span span = {0, 0, 'g', 1, 0};
    char* at = nullptr;
    span.address = static_cast<u32>(std::strtoul(word.c_str(), &at, 0));
    span.size = static_cast<u32>(std::strtoul(at + 1, &at, 0));
    if (*at >= 'a') {
      span.access = *at++;
    }
    span.selected = *at == '!' ? 0 : 1;
    span.element = *at == ':' ? static_cast<u32>(std::atoi(at + 1)) : 0;
    spans.push_back(span);
  }
  return spans;
}

Blocks Elements(const std::string& text) {
  Blocks blocks;
  for (const Span& span : Spans(text)) {
    const u32 element = static_cast<u32>(blocks.size());
    blocks.push_back({span.address, PatternAt(span.address, span.size, element)});
  }
  return blocks;
}

Blocks Pieces(const std::string& text) {
  Blocks blocks;
  for (const Span& span : Spans(text)) {
    blocks.push_back({span.address, PatternAt(span.address, span.size, span.element)});
  }
  return blocks;
}

// The sectors as a map, which lives as long as the object.
class TestMap {
 public:
  explicit TestMap(const std::string& sectors, u8 alternateSetting = 0) {
    for (const Span& span : Spans(sectors)) {
      const u32 index = static_cast<u32>(records_.size());
      records_.push_back(
          {span.address, span.address, index, span.size, span.access, span.selected});
    }
    map_.alternateSetting = alternateSetting;
    map_.sectorCount = static_cast<u32>(records_.size());
    map_.sectors = records_.data();
  }
  const MemoryMap* get() const { return &map_; }

 private:
  std::vector<MemorySector> records_;
  MemoryMap map_ = {};
};

TEST(FitImageTest, KeepsWhatLiesInTheSectorsThatTakePart) {
  constexpr char Row[] = "0+100 100+100 200+100";
  constexpr char Mixed[] = "0+10a 10+10b 20+10d 30+10g! 40+10e 50+10f 60+10c";
  struct {
    const char* what;
    u32 operationCode;
    const char* elements;
    const char* sectors;
    const char* pieces;
  } const cases[] = {
      {"inside a sector", 4, "110+20", Row, "110+20"},
      {"exactly a sector", 4, "100+100", Row, "100+100"},
      {"from a sector's start", 4, "100+99", Row, "100+99"},
      {"to a sector's end", 4, "101+99", Row, "101+99"},
      {"over a border", 4, "190+20", Row, "190+10 200+10"},
      {"over three sectors", 4, "50+200", Row, "50+50 100+100 200+50"},
      {"more than the map", 4, "100+400", "150+50 200+50", "150+50 200+50"},
      {"a gap between sectors", 4, "0+300", "0+100 200+100", "0+100 200+100"},
      {"a sector not writable", 4, "50+200", "0+100 100+100c 200+100", "50+50 200+50"},
      {"a sector not selected", 4, "50+200", "0+100 100+100! 200+100", "50+50 200+50"},
      {"next to a sector", 4, "90+10 200+10", "100+100", ""},
      {"no sector", 4, "100+10", "", ""},
      {"no element", 4, "", Row, ""},
      {"file order", 4, "210+100 90+20 150+10", Row, "210+90:0 90+10:1 100+10:1 150+10:2"},
      {"one in the middle goes", 4, "0+10 500+10 20+10", Row, "0+10:0 20+10:2"},
      {"map order", 4, "50+200", "200+100 0+100 100+100", "200+50 50+50 100+100"},
      {"sectors overlap", 4, "0+100", "0+60 40+60", "0+60 40+60"},
      {"elements overlap", 4, "0+60 40+60", "0+50 50+50", "0+50 50+10 40+10:1 50+50:1"},
      {"empty, inside", 4, "150+0", Row, "150+0"},
      {"empty, on a border", 4, "100+0", Row, ""},
      {"up to the top", 4, "0xFFFFFFC0+64", "0xFFFFFFC0+32 0xFFFFFFE0+32",
       "0xFFFFFFC0+32 0xFFFFFFE0+32"},
      {"element beyond the top", 4, "0xFFFFFFC0+96", "0+32 0xFFFFFFC0+64", "0xFFFFFFC0+64"},
      {"sector beyond the top", 4, "0xFFFFFFD0+48 0+16", "0xFFFFFFC0+96", "0xFFFFFFD0+48"},
      {"both beyond the top", 4, "0xFFFFFFC0+96", "0xFFFFFFC0+96", "0xFFFFFFC0+64"},
      {"no operation", 0, "0+70", Mixed, ""},
      {"readable", 1, "0+70", Mixed, "0+10 40+10 60+10"},
      {"readable, too", 2, "0+70", Mixed, "0+10 40+10 60+10"},
      {"writable", 4, "0+70", Mixed, "20+10 40+10 50+10"},
      {"selected", 5, "0+70", Mixed, "0+10 10+10 20+10 40+10 50+10 60+10"},
      {"selected, too", ~0u, "5+10", Mixed, "5+5 10+5"},

      {"erasable", 3, "0+70", Mixed, "10+0 50+0 60+0"},
      {"erase for the last byte", 3, "199+1", Row, "100+0"},
      {"erase over borders", 3, "50+151", Row, "0+0 100+0 200+0"},
      {"erase once, in map order", 3, "210+5 20+5 10+5 200+9", Row, "0+0 200+0"},
      {"erase, descending map", 3, "0+6", "5+1 4+1 3+1 2+1 1+1 0+1", "5+0 4+0 3+0 2+0 1+0 0+0"},
      {"erase in no sector", 3, "300+50", Row, ""},
      {"erase for an empty one", 3, "150+0", Row, "100+0"},
      {"erase for none on a border", 3, "100+0", Row, ""},
      {"erase at the top", 3, "0xFFFFFFFF+1", "0+64 0xFFFFFFC0+64", "0xFFFFFFC0+0"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const TestMap map(c.sectors);
    DfuImage* image = NewRegisteredImage(Elements(c.elements));
    EXPECT_EQ(FitImageToMemoryMap(image, map.get(), c.operationCode), StatusSuccess);
    EXPECT_EQ(BlocksOf(*image), Pieces(c.pieces));
    EXPECT_EQ(image->Valid, 1u);
    ReleaseImage(&image);
  }
}

TEST(FitImageTest, RefusesWhatItCannotWorkOn) {
  const TestMap map("0+10");
  const Blocks blocks = Elements("5+10");
  DfuImage* image = NewRegisteredImage(blocks);
  DfuImage* notValid = NewRegisteredImage(blocks);
  notValid->Valid = 0;
  DfuImage unregistered(0, 0, nullptr);
  AppendBlocks(unregistered, blocks);

  for (const u32 operationCode : {Erase, Download}) {
    EXPECT_EQ(FitImageToMemoryMap(image, nullptr, operationCode), StatusNoImage);
    EXPECT_EQ(FitImageToMemoryMap(nullptr, map.get(), operationCode), StatusNoImage);
    EXPECT_EQ(FitImageToMemoryMap(notValid, map.get(), operationCode), StatusNoImage);
    EXPECT_EQ(FitImageToMemoryMap(&unregistered, map.get(), operationCode), StatusNoImage);
  }
  for (const DfuImage* untouched : {image, notValid, &unregistered}) {
    EXPECT_EQ(BlocksOf(*untouched), blocks);
  }
  EXPECT_EQ(image->Valid, 1u);
  ReleaseImage(&image);
  ReleaseImage(&notValid);
}

TEST(FitImageTest, MarksAnImageThatRanOutOfMemoryOnTheWay) {
  const TestMap map("0+10 10+10 20+10 30+10 40+10 50+10");
  for (const u32 operationCode : {Erase, Download}) {
    std::size_t request = 1;
    for (bool met = true; met; ++request) {
      SCOPED_TRACE(request);
      DfuImage* image = NewRegisteredImage(Elements("0+55"));
      const RefusedMemory refused(request);
      const u32 status = FitImageToMemoryMap(image, map.get(), operationCode);
      met = refused.met();
      EXPECT_EQ(status, met ? StatusNoImage : StatusSuccess);
      EXPECT_EQ(image->Valid, met ? 0u : 1u);
      EXPECT_EQ(ReleaseImage(&image), StatusSuccess);
    }
    EXPECT_GT(request, 3u);
  }
}

// A device may tell sectors of 4 GiB; what is looked at of them must not be copied.
TEST(FitImageTest, NeedsNoMemoryForASectorToErase) {
  const TestMap map("0+0xFFFFFFFF");
  DfuImage* image = NewRegisteredImage(Elements("100+10"));
  {
    constexpr std::size_t BehindTheListOfEntries = 2;
    const RefusedMemory refused(BehindTheListOfEntries);
    EXPECT_EQ(FitImageToMemoryMap(image, map.get(), Erase), StatusSuccess);
    EXPECT_FALSE(refused.met());
  }
  EXPECT_EQ(BlocksOf(*image), Pieces("0+0"));
  ReleaseImage(&image);
}

TEST(BlankImageTest, CoversTheSelectedSectorsInTheMapsOrder) {
  const TestMap map("200+3a 100+2b! 50+1d 300+0", 7);
  DfuImage* image = nullptr;
  ASSERT_EQ(BlankImageFromMemoryMap(&image, map.get()), StatusSuccess);
  EXPECT_EQ(BlocksOf(*image), (Blocks{{200, {0xFF, 0xFF, 0xFF}}, {50, {0xFF}}, {300, {}}}));
  EXPECT_EQ(image->AlternateSetting, 7);
  EXPECT_EQ(image->Named, 0u);
  EXPECT_EQ(ReleaseImage(&image), StatusSuccess);
}

TEST(BlankImageTest, LeavesTheHandleAloneWhenItCannotBeMade) {
  DfuImage other(0, 0, nullptr);
  DfuImage* image = &other;
  EXPECT_EQ(BlankImageFromMemoryMap(&image, nullptr), StatusNoImage);
  const TestMap endless("0+0xFFFFFFFF 0+0xFFFFFFFF");
  EXPECT_EQ(BlankImageFromMemoryMap(&image, endless.get()), StatusNoImage);

  const TestMap map("0+10 10+10");
  for (std::size_t request = 1; request <= 4; ++request) {
    const RefusedMemory refused(request);
    EXPECT_EQ(BlankImageFromMemoryMap(&image, map.get()), StatusNoImage) << request;
    EXPECT_TRUE(refused.met());
  }
  EXPECT_EQ(image, &other);
  EXPECT_TRUE(RegisteredImages().empty());
}

}  // namespace
