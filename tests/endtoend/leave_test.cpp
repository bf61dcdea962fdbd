// Leaves whose image cannot be made whole: the keyboard is sent away all the same, or the user is
// told that it was not.

#include "tests/support/refused_memory.h"
#include "tests/support/running_update_test.h"

namespace {

using simulator::KeyboardOptions;
using simulator::VirtualKeyboard;

class LeaveTest : public RunningUpdateTest {
 protected:
  std::size_t LeavesSent() const {
    const Texts requests = DfuRequests();
    return static_cast<std::size_t>(
        std::count(requests.begin(), requests.end(), "DNLOAD block 0, 0 bytes"));
  }
};

TEST_F(LeaveTest, IsSentWhenTheMapTellsMoreThanABlankImageHolds) {
  KeyboardOptions options;
  options.alternateSettings[0].mapString =
      "@Internal Flash  /0x08000000/04*016Kg,01*064Kg,01*128Kg,02*200Mg";
  ExpectUpdated(BeginUpdate(options), {"START", "COMPLETE"});
  EXPECT_EQ(LeavesSent(), 1u);
}

// The request for memory with this number, from the end of the download on, is refused.
class LeaveWithoutMemoryTest : public LeaveTest, public OfTable<u64> {
 public:
  // Behind the two of the refresh. A leave without any image is one that sends nothing.
  static constexpr u64 ImageRequest = 3;
  static constexpr u64 LastRequest = 32;
};

TEST_OF_ROW(LeaveWithoutMemoryTest, IsSentOrTheUserIsTold) {
  VirtualKeyboard& keyboard = BeginUpdate();
  PassTimeUntilReached(keyboard, Progress::Downloaded);
  const RefusedMemory refused(row());
  PassTime(30'000);

  const bool sent = LeavesSent() == 1;
  const bool complete = sent || row() == ImageRequest;
  EXPECT_EQ(Words(), (Texts{"START", complete ? "COMPLETE" : "DISCONNECT"}));
  EXPECT_EQ(keyboard.runningVersion() == package.version, sent);
  EXPECT_EQ(dfuImageRegistry.First(), nullptr);
  if (row() == LastRequest) {
    EXPECT_FALSE(refused.met()) << "there are more requests than are refused here";
  }
}

ROWS(LeaveWithoutMemoryTest, IsSentOrTheUserIsTold, NumberOfRow,
     UpTo(LeaveWithoutMemoryTest::LastRequest));

}  // namespace
