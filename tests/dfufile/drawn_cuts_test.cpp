// Cuts of drawn images and maps against the rules, and of very large ones against the clock.

#include <algorithm>
#include <ctime>
#include <functional>
#include <random>

#include "common/status.h"
#include "dfufile/image_cuts.h"
#include "dfufile/operation_codes.h"
#include "simulator/host_process.h"
#include "tests/dfufile/memory_spans.h"

namespace {

bool Overlap(const Span& a, const Span& b) {
  return a.address < b.address + b.size && a.address + a.size > b.address;
}

// The rules of a cut once more, as plain as they can be written.
Blocks CutSlowly(const std::vector<Span>& elements, std::vector<Span> sectors, u32 operationCode) {
  const bool erases = operationCode == OperationErase;
  std::erase_if(sectors, [&](const Span& sector) {
    return sector.selected == 0 ||
           (sector.access & (erases ? SectorErasable : SectorWritable)) == 0;
  });
  Blocks pieces;
  if (erases) {
    for (const Span& sector : sectors) {
      if (std::any_of(elements.begin(), elements.end(), std::bind_front(Overlap, sector))) {
        pieces.push_back({sector.address, {}});
      }
    }
    return pieces;
  }
  for (const Span& element : elements) {
    for (const Span& sector : sectors) {
      if (Overlap(element, sector)) {
        const u32 start = std::max(element.address, sector.address);
        const u32 end = std::min(element.address + element.size, sector.address + sector.size);
        pieces.push_back({start, PatternAt(start, end - start, element.element)});
      }
    }
  }
  return pieces;
}

// Spans in any order, overlapping, empty or side by side.
std::vector<Span> DrawSpans(std::mt19937& dice) {
  const bool sideBySide = dice() % 3 == 0;
  std::vector<Span> spans(dice() % 12);
  u32 next = dice() % 20;
  u32 number = 0;
  for (Span& span : spans) {
    span.size = dice() % (dice() % 4 == 0 ? 40 : 6);
    span.address = sideBySide ? next : dice() % 64;
    span.access = static_cast<char>('a' + dice() % 7);
    span.selected = dice() % 8 != 0;
    span.element = number++;
    next += span.size;
  }
  if (dice() % 2 == 0) {
    std::reverse(spans.begin(), spans.end());
  }
  return spans;
}

TEST(DrawnCutsTest, FollowTheRules) {
  simulator::SilenceStandardOutput();
  std::mt19937 dice(1);
  for (int round = 0; round < 4000; ++round) {
    SCOPED_TRACE(round);
    const std::vector<Span> elements = DrawSpans(dice);
    const std::vector<Span> sectors = DrawSpans(dice);
    const u32 operationCode = round % 2 == 0 ? OperationErase : OperationDownload;
    Blocks blocks;
    for (const Span& element : elements) {
      blocks.push_back(
          {element.address, PatternAt(element.address, element.size, element.element)});
    }
    const TestMap map(sectors);
    DfuImage* image = NewRegisteredImage(blocks);
    ASSERT_EQ(FitImageToMemoryMap(image, map.get(), operationCode), StatusSuccess);
    ASSERT_EQ(BlocksOf(*image), CutSlowly(elements, sectors, operationCode));
    ReleaseImage(&image);
  }
}

// Processor time of both cuts of elements over as many sectors.
std::clock_t TimeOfCuts(u32 count) {
  std::vector<Span> sectors;
  Blocks blocks;
  for (u32 i = 0; i < count; ++i) {
    sectors.push_back({i * 16, 16, 'g', 1, 0});
    blocks.push_back({i * 16 + 8, {1, 2}});
  }
  const TestMap map(sectors);
  std::clock_t time = 0;
  for (const u32 operationCode : {OperationErase, OperationDownload}) {
    DfuImage* image = NewRegisteredImage(blocks);
    const std::clock_t start = std::clock();
    EXPECT_EQ(FitImageToMemoryMap(image, map.get(), operationCode), StatusSuccess);
    time += std::clock() - start;
    EXPECT_EQ(image->Elements.size(), count);
    ReleaseImage(&image);
  }
  return time;
}

// The least of a few: what else the machine does can only add to it.
std::clock_t LeastTimeOfCuts(u32 count) {
  std::clock_t least = TimeOfCuts(count);
  for (int i = 0; i < 4; ++i) {
    least = std::min(least, TimeOfCuts(count));
  }
  return least;
}

TEST(DrawnCutsTest, TakeTimeThatGrowsWithTheWork) {
  simulator::SilenceStandardOutput();
  // Eight times the work. With the square of it the time would be 64 times as long.
  EXPECT_LT(LeastTimeOfCuts(48'000), 32 * LeastTimeOfCuts(6000));
}

}  // namespace
