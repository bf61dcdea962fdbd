// How elements are cut into data blocks.

#include "dfuengine/flash_operation.h"
#include "tests/dfuengine/operation_test.h"

namespace {

class NextBlockTest : public OperationTest {
 protected:
  // The blocks that follow the given one as "number:length", "|" for the command of each further
  // element, and how the walk ends.
  std::string Walk(u32 operationCode, u16 transferSize, u16 blockNumber, u32 length) {
    OperationContext record = Record(operationCode);
    Probe<FlashOperation> operation(record, device);
    OperationContext work = operation.Copy();
    work.transferSize = transferSize;
    work.elementIndex = 0;
    work.blockNumber = blockNumber;
    work.length = length;
    std::string blocks;
    while (blocks.size() < 200) {
      u32 done = 77;
      const i32 more = operation.NextBlock(work, done);
      if (more == 0) {
        return blocks + (done == 1 ? "end" : "broken");
      }
      if (done == 0) {
        blocks += std::to_string(work.blockNumber) + ":" + std::to_string(work.length) + " ";
        continue;
      }
      ++work.elementIndex;
      work.blockNumber = 0;
      work.length = CommandBlockBytes;
      blocks += "| ";
    }
    return blocks + "without end";
  }
};

TEST_F(NextBlockTest, CutsElements) {
  const struct {
    std::vector<u32> sizes;
    u16 transferSize;
    u16 blockNumber;
    u32 length;
    const char* blocks;
  } cases[] = {
      {{2500}, 1024, 0, 5, "2:1024 3:1024 4:452 end"},
      {{2048}, 1024, 0, 5, "2:1024 3:1024 end"},
      {{2049}, 1024, 0, 5, "2:1024 3:1024 4:1 end"},
      {{1023}, 1024, 0, 5, "2:1023 end"},
      {{0}, 1024, 0, 5, "end"},
      {{3}, 1, 0, 5, "2:1 3:1 4:1 end"},
      {{1, 0, 1500, 0}, 1000, 0, 5, "2:1 | | 2:1000 3:500 | end"},
      {{131071}, 65535, 0, 5, "2:65535 3:65535 4:1 end"},
      // As many blocks as there are numbers, and more: no way round to block 0.
      {{65534}, 1, 65533, 1, "65534:1 65535:1 end"},
      {{65535}, 1, 65533, 1, "65534:1 65535:1 broken"},
      {{0xFFFFFFFF}, 65535, 65533, 65535, "65534:65535 65535:65535 broken"},
      {{65531u * 65535 + 100}, 65535, 65533, 100, "end"},
      // A length that is not the block's: no empty block, which would ask the device to leave.
      {{1024}, 1024, 2, 1000, "broken"},
      {{}, 1024, 0, 5, "broken"},
  };
  for (const auto& test : cases) {
    SetSizes(test.sizes);
    EXPECT_EQ(Walk(OperationDownload, test.transferSize, test.blockNumber, test.length),
              test.blocks);
  }
}

TEST_F(NextBlockTest, ErasesWithoutDataAndOnlyAValidImage) {
  SetSizes({2500, 0});
  EXPECT_EQ(Walk(OperationErase, 1024, 0, 5), "| end");
  image.Valid = 0;
  EXPECT_EQ(Walk(OperationErase, 1024, 0, 5), "broken");
}

}  // namespace
