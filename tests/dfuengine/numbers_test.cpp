// Numbers that people look for in a debugger and in old notes: no other test knows them by value.

#include <gtest/gtest.h>

#include <vector>

#include "common/status.h"
#include "dfuengine/operation_context.h"

namespace {

using Numbers = std::vector<u32>;

TEST(NumbersTest, AreWhatTheyAlwaysWere) {
  EXPECT_EQ(
      (Numbers{StatusSuccess, StatusNoInterfaceHandle, StatusDeviceNotOpened, StatusNothingToWorkOn,
               StatusUnexpectedState, StatusRequestFailed, StatusDeviceError, StatusBadFile,
               StatusNoImage, StatusBadElements, StatusFileNotOpened}),
      (Numbers{0x12340000, 0x12340002, 0x12340005, 0x12345008, 0x12345009, 0x1234500A, 0x1234500B,
               0x12346005, 0x12346008, 0x1234600D, 0x1234600E}));
  EXPECT_EQ((Numbers{PhaseOpening, PhaseDnload, PhaseGetStatus, PhaseClearStatus, PhaseGetState,
                     PhaseAbort, PhaseSelecting, PhaseLeaving, PhaseLeft, PhaseNotStarted}),
            (Numbers{0x0A000000, 0x0D000000, 0x0F000000, 0x10000000, 0x11000000, 0x12000000,
                     0x13000000, 0x14000000, 0x16000000, 0xFFFFFFFF}));
  constexpr GUID A = {0x3FE809AB, 0xFB91, 0x4CB5, {0xA6, 0x43, 0x69, 0x67, 0x0D, 0x52, 0x36, 0x6E}};
  constexpr GUID B = {0xCB979912, 0x5029, 0x420A, {0xAE, 0xB1, 0x34, 0xFC, 0x0A, 0x7D, 0x57, 0x26}};
  EXPECT_TRUE(OperationGuidA == A && LeaveOperationGuidB == B);
  EXPECT_EQ((Numbers{OperationNone, OperationLeave, OperationRefused, OperationErase,
                     OperationDownload, OperationEverySector}),
            (Numbers{0, 1, 2, 3, 4, 5}));
}

}  // namespace
