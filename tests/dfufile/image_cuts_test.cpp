// Images cut to the device's memory, and blank images of it.

#include "dfufile/image_cuts.h"

#include <sstream>
#include <string>

#include "common/status.h"
#include "dfufile/operation_codes.h"
#include "tests/dfufile/memory_spans.h"
#include "tests/support/refused_memory.h"
#include "tests/support/stdout_capture.h"

namespace {

TEST(FitImageTest, KeepsWhatLiesInTheSectorsThatTakePart) {
  constexpr char Row[] = "0+100 100+100 200+100";
  constexpr char Mixed[] = "0+10a 10+10b 20+10d 30+10g! 40+10e 50+10f 60+10c";
  struct {
    const char* what;
    const char* elements;
    const char* sectors;
    const char* pieces;
    u32 operationCode = OperationDownload;
  } const cases[] = {
      {"over three sectors", "50+200", Row, "50+50 100+100 200+50"},
      {"a gap between sectors", "0+300", "0+100 200+100", "0+100 200+100"},
      {"file order", "210+100 90+20 150+10", Row, "210+90:0 90+10:1 100+10:1 150+10:2"},
      {"map order", "50+200", "200+100 0+100 100+100", "200+50 50+50 100+100"},
      {"elements overlap", "0+60 40+60", "0+50 50+50", "0+50 50+10 40+10:1 50+50:1"},
      {"empty, inside", "150+0", Row, "150+0"},
      {"empty, on a border", "100+0", Row, ""},
      {"up to the top", "0xFFFFFFC0+64", "0xFFFFFFC0+32 0xFFFFFFE0+32",
       "0xFFFFFFC0+32 0xFFFFFFE0+32"},
      {"element beyond the top", "0xFFFFFFC0+96", "0+32 0xFFFFFFC0+64", "0xFFFFFFC0+64"},
      {"sector beyond the top", "0xFFFFFFD0+48 0+16", "0xFFFFFFC0+96", "0xFFFFFFD0+48"},
      {"both beyond the top", "0xFFFFFFC0+96", "0xFFFFFFC0+96", "0xFFFFFFC0+64"},
      {"no operation", "0+70", Mixed, "", OperationNone},
      {"readable", "0+70", Mixed, "0+10 40+10 60+10", OperationLeave},
      {"readable, too", "0+70", Mixed, "0+10 40+10 60+10", OperationRefused},
      {"writable", "0+70", Mixed, "20+10 40+10 50+10"},
      {"selected", "0+70", Mixed, "0+10 10+10 20+10 40+10 50+10 60+10", OperationEverySector},
      {"selected, too", "5+10", Mixed, "5+5 10+5", ~0u},

      {"erasable", "0+70", Mixed, "10+0 50+0 60+0", OperationErase},
      {"erase once, in map order", "210+5 20+5 10+5 200+9", Row, "0+0 200+0", OperationErase},
      {"erase, descending map", "0+6", "5+1 4+1 3+1 2+1 1+1 0+1", "5+0 4+0 3+0 2+0 1+0 0+0",
       OperationErase},
      {"erase at the top", "0xFFFFFFFF+1", "0+64 0xFFFFFFC0+64", "0xFFFFFFC0+0", OperationErase},
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

  for (const u32 operationCode : {OperationErase, OperationDownload}) {
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

TEST(FitImageTest, LeavesAnImageAsItWasWhenMemoryIsRefused) {
  // The second element lies whole in a sector.
  const Blocks blocks = Elements("0+55 11+3 35+20");
  const TestMap map("0+10 10+10 20+10 30+10 40+10 50+10");
  for (const u32 operationCode : {OperationErase, OperationDownload}) {
    std::size_t request = 1;
    for (bool met = true; met; ++request) {
      SCOPED_TRACE(request);
      DfuImage* image = NewRegisteredImage(blocks);
      const RefusedMemory refused(request);
      const u32 status = FitImageToMemoryMap(image, map.get(), operationCode);
      met = refused.met();
      EXPECT_EQ(status, met ? StatusNoImage : StatusSuccess);
      EXPECT_EQ(image->Valid, 1u);
      EXPECT_EQ(BlocksOf(*image) == blocks, met);
      EXPECT_EQ(ReleaseImage(&image), StatusSuccess);
    }
    EXPECT_GT(request, 3u);
  }
}

// What is told of a piece stays true: the lines come from the last piece to the first, and none of
// them moves for those in front of it. An element that lies in one sector gives its bytes away.
TEST(FitImageTest, TellsWhereItsPiecesAreInTheEnd) {
  const TestMap map("0+10 10+10 20+10 30+10 40+10 50+10");
  DfuImage* image = NewRegisteredImage(Elements("0+55 11+3"));
  const u8* const whole = image->Elements[1].Data;
  std::string expected;
  std::string told;
  {
    const StdoutCapture capture;
    ASSERT_EQ(FitImageToMemoryMap(image, map.get(), OperationDownload), StatusSuccess);
    told = capture.Text();
  }
  ASSERT_EQ(image->Elements.size(), 7u);
  for (u32 i = image->Elements.size(); i-- > 0;) {
    const DfuElement& piece = image->Elements[i];
    std::ostringstream lines;
    lines << "address of pNewElement = " << &piece << "\n"
          << "address of pNewElement->Data = " << &piece.Data << "\n";
    expected += lines.str();
  }
  EXPECT_EQ(told, expected);
  EXPECT_EQ(image->Elements[6].Data, whole);
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
  EXPECT_EQ(BlankImageFromMemoryMap(&image, nullptr), StatusNoImage);
}

// The addresses of the image's elements, which are given back with it.
std::vector<u32> ReleaseForAddresses(DfuImage* image) {
  EXPECT_EQ(RegisteredImages(), std::vector<const DfuImage*>{image});
  std::vector<u32> addresses;
  for (u32 i = 0; i < image->Elements.size(); ++i) {
    const DfuElement& element = image->Elements[i];
    EXPECT_TRUE(element.Size == 0 || element.Data[element.Size - 1] == 0xFF);
    addresses.push_back(element.Address);
  }
  EXPECT_EQ(ReleaseImage(&image), StatusSuccess);
  return addresses;
}

// A leave needs one readable sector and no more; the first is made whatever its size.
TEST(BlankImageTest, PassesOverWhatIsTooMuch) {
  const struct {
    const char* what;
    const char* sectors;
    std::vector<u32> addresses;
  } cases[] = {
      {"the second of two", "0+9 10+200M 20+200M", {0, 10}},
      {"in the middle", "0+9 10+300M 20+9", {0, 20}},
      {"but not the first", "0+300M 10+9", {0}},
      {"nor the first to be read", "0+9d 10+300M 20+1", {0, 10}},
      {"an empty one cannot be read", "0+0 10+300M 20+1", {0, 10}},
      {"one that cannot be read", "0+300Md 10+9", {10}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    DfuImage* image = nullptr;
    EXPECT_EQ(BlankImageFromMemoryMap(&image, TestMap(c.sectors).get()), StatusNoImage);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(ReleaseForAddresses(image), c.addresses);
  }
}

}  // namespace
