// Images and their elements, and the registry of the live ones.

#include "dfufile/dfu_image.h"

#include <cstring>
#include <memory>
#include <sstream>
#include <string>

#include "common/status.h"
#include "dfufile/image_registry.h"
#include "tests/dfufile/image_records.h"
#include "tests/support/refused_memory.h"
#include "tests/support/stdout_capture.h"

namespace {

TEST(InsertElementTest, PutsACopyAtThePositionUnlessItIsBeyondTheEnd) {
  const Blocks blocks = {{1, {11}}, {2, {}}, {3, {33, 34}}};
  for (const u32 position : {0u, 1u, 2u, 3u, 4u, ~0u}) {
    SCOPED_TRACE(position);
    DfuImage image(0, 0, nullptr);
    AppendBlocks(image, blocks);

    const bool fits = position <= blocks.size();
    u8 bytes[] = {98, 99};
    EXPECT_EQ(InsertElement(&image, position, {9, 2, bytes}), fits ? 1 : 0);
    bytes[0] = 0;

    Blocks expected = blocks;
    if (fits) {
      expected.insert(expected.begin() + position, {9, {98, 99}});
    }
    EXPECT_EQ(BlocksOf(image), expected);
  }
}

TEST(InsertElementTest, WritesTwoLinesForEachElementAndNoneForARefusedOne) {
  DfuImage image(0, 0, nullptr);
  const StdoutCapture capture;
  u8 byte = 7;
  InsertElement(&image, 0, {1, 1, &byte});
  InsertElement(&image, 2, {1, 1, &byte});
  image.Valid = 0;
  InsertElement(&image, 0, {1, 1, &byte});

  const DfuElement& element = image.Elements[0];
  std::ostringstream lines;
  lines << "address of pNewElement = " << static_cast<const void*>(&element)
        << "\naddress of pNewElement->Data = " << static_cast<const void*>(&element.Data) << "\n";
  EXPECT_EQ(capture.Text(), lines.str());
  EXPECT_EQ(image.Elements.size(), 1u);
}

TEST(CloneImageTest, CopiesEverythingIntoDataOfItsOwn) {
  const std::string longest(254, 'n');
  const Blocks blocks = {{0x20, {1, 2, 3}}, {0x10, {}}, {0x30, {4}}};
  struct {
    u32 named;
    u32 valid;
    std::string name;
  } const cases[] = {{0x80000000, 1, longest}, {0, 0, ""}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.named);
    DfuImage original(3, c.named, longest.c_str());
    AppendBlocks(original, blocks);
    original.Valid = c.valid;

    const std::unique_ptr<DfuImage> clone(CloneImage(&original));
    ASSERT_NE(clone, nullptr);
    original.Elements[0].Data[0] = 99;
    EXPECT_EQ(clone->AlternateSetting, 3);
    EXPECT_EQ(clone->Valid, c.valid);
    EXPECT_EQ(clone->Named, c.named);
    EXPECT_EQ(clone->Name, c.name);
    EXPECT_EQ(BlocksOf(*clone), blocks);
    EXPECT_FALSE(IsRegisteredImage(clone.get()));
  }
}

TEST(ReadImageRegionTest, ShowsWhatLiesInTheRegion) {
  constexpr u32 Top = 0xFFFFFFFC;
  const std::vector<u8> untouched;
  struct {
    const char* what;
    Blocks blocks;
    u32 start;
    u32 length;
    std::vector<u8> content;  // empty: no element overlaps
  } const cases[] = {
      {"exactly an element", {{100, {1, 2}}}, 100, 2, {1, 2}},
      {"inside an element", {{100, {1, 2, 3, 4}}}, 101, 2, {2, 3}},
      {"more than an element", {{101, {1, 2}}}, 100, 4, {0xFF, 1, 2, 0xFF}},
      {"cuts an element's front", {{100, {1, 2, 3}}}, 102, 3, {3, 0xFF, 0xFF}},
      {"cuts an element's end", {{100, {1, 2, 3}}}, 98, 3, {0xFF, 0xFF, 1}},
      {"ends where an element starts", {{100, {1, 2}}}, 98, 2, untouched},
      {"starts where an element ends", {{100, {1, 2}}}, 102, 2, untouched},
      {"no elements", {}, 0, 4, untouched},
      {"the earlier of two wins", {{100, {1, 2}}, {101, {8, 9}}}, 100, 3, {1, 2, 9}},
      {"the earlier wins though it lies higher", {{101, {8, 9}}, {100, {1, 2}}}, 100, 3, {1, 8, 9}},
      {"a gap between two", {{100, {1}}, {102, {2}}}, 100, 3, {1, 0xFF, 2}},
      {"an empty element strictly inside", {{101, {}}}, 100, 2, {0xFF, 0xFF}},
      {"an empty element at the start", {{100, {}}}, 100, 2, untouched},
      {"the last bytes there are", {{Top, {1, 2, 3, 4}}}, Top + 1, 3, {2, 3, 4}},
      {"an element beyond the last byte", {{Top, {1, 2, 3, 4, 5}}}, 0, 4, untouched},
      {"a region beyond the last byte",
       {{Top + 2, {1, 2}}, {0, {7}}},
       Top + 1,
       4,
       {0xFF, 1, 2, 0xFF}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    DfuImage image(0, 0, nullptr);
    AppendBlocks(image, c.blocks);
    const std::vector<u8> before(c.length, 0x5A);
    std::vector<u8> buffer = before;
    const bool overlaps = !c.content.empty();

    EXPECT_EQ(ReadImageRegion(&image, c.start, c.length, buffer.data()), overlaps ? 1 : 0);
    EXPECT_EQ(buffer, overlaps ? c.content : before);

    buffer = before;
    image.Valid = 0;
    EXPECT_EQ(ReadImageRegion(&image, c.start, c.length, buffer.data()), 0);
    EXPECT_EQ(buffer, before);
  }
}

TEST(ImageRegistryTest, ReleasesARegisteredImageOnce) {
  DfuImage* first = NewRegisteredImage({{1, {1}}});
  DfuImage* second = NewRegisteredImage({{2, {2}}});
  DfuImage* third = NewRegisteredImage({});
  DfuImage* stale = second;

  EXPECT_EQ(ReleaseImage(&second), StatusSuccess);
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(RegisteredImages(), (std::vector<const DfuImage*>{first, third}));

  EXPECT_EQ(ReleaseImage(&stale), StatusNoImage);
  EXPECT_NE(stale, nullptr);
  EXPECT_EQ(ReleaseImage(&second), StatusNoImage);
  DiscardImage(&stale);
  EXPECT_EQ(stale, nullptr);
  DiscardImage(&third);
  EXPECT_EQ(third, nullptr);
  EXPECT_EQ(ReleaseImage(&first), StatusSuccess);
  EXPECT_TRUE(RegisteredImages().empty());
}

}  // namespace
