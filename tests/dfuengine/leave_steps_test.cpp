// The steps in which the keyboard leaves DFU mode, and what the user is told.

#include "dfuengine/leave_dfu_operation.h"
#include "service/package_location.h"
#include "tests/dfuengine/operation_test.h"

namespace {

const std::string Idle = "OPEN GETSTATUS=0,2 GETSTATUS=0,2 ";
const std::string Told = "FREE CLOSE / / COMPLETE DONE:100";

class LeaveStepsTest : public OperationTest {
 protected:
  LeaveStepsTest() {
    InstallPackage();
    LogOnUser();
    SelectPackageFolder();
    AddElement(0x08000000, 16);
  }

  // Runs the operation by each script. Nobody may see a failure on the way.
  void ExpectLeft(const std::vector<ScriptCase>& cases) {
    for (const ScriptCase& test : cases) {
      OperationContext record = Record(OperationLeave);
      Probe<LeaveDfuOperation> operation(record, device);
      PlaySteps(operation, test);
      EXPECT_EQ(operation.Percents(), (std::vector<int>{0, 15, 50, 100})) << test.what;
      for (const OperationContext& published : operation.published) {
        EXPECT_EQ(published.status, StatusSuccess) << test.what;
      }
    }
  }
};

TEST_F(LeaveStepsTest, SendTheRequestAndTellTheUserOnce) {
  ExpectLeft(
      {{"dfuMANIFEST",
        "[Opening] OPEN [Status] GETSTATUS=0,2 [Status] GETSTATUS=0,2 [Status] [State] GETSTATE=2 "
        "[State] [Dnload] LEAVE [Status] GETSTATUS=0,7,50 FREE CLOSE [Status] [Leaving] / [Left] / "
        "COMPLETE [Left] DONE:100"}});
}

TEST_F(LeaveStepsTest, EndWellWhateverBecomesOfTheRequest) {
  ExpectLeft({
      {"the device resets before it answers",
       Idle + "GETSTATE=2 LEAVE GETSTATUS! GETSTATUS! ABORT! " + Told},
      {"it resets at once", Idle + "GETSTATE=2 LEAVE! GETSTATE! ABORT! " + Told},
      {"it refuses", Idle +
                         "GETSTATE=2 LEAVE! GETSTATE=2 GETSTATE=2 LEAVE! GETSTATE=2 GETSTATE=2 "
                         "LEAVE! GETSTATE=2 ABORT " +
                         Told},
      {"dfuDNBUSY",
       Idle + "GETSTATE=2 LEAVE GETSTATUS=0,4,500 FREE CLOSE /500 / COMPLETE DONE:100"},
      {"dfuMANIFEST-SYNC", Idle + "GETSTATE=2 LEAVE GETSTATUS=0,6 " + Told},
      {"dfuMANIFEST-WAIT-RESET", Idle + "GETSTATE=2 LEAVE GETSTATUS=0,8 " + Told},
      {"an error", Idle + "GETSTATE=2 LEAVE GETSTATUS=14,2 " + Told},
      {"taken for a block", Idle + "GETSTATE=2 LEAVE GETSTATUS=0,5 " + Told},
  });
  ElementList none;
  image.Elements.Swap(none);
  ExpectLeft({{"no element to look up", Idle + Told}});
}

TEST_F(LeaveStepsTest, TellNobodyWhenTheRequestCannotBeMade) {
  const ScriptCase cases[] = {
      {"the device does not become idle", "OPEN GETSTATUS=0,2 GETSTATUS! ABORT! 500A"},
      {"nor goes on", "OPEN GETSTATUS=0,1 GETSTATUS=0,1 ABORT GETSTATUS=0,1 ABORT 5009"},
      {"the device is gone", "0005"},
  };
  for (const ScriptCase& test : cases) {
    OperationContext record = Record(OperationLeave);
    Probe<LeaveDfuOperation> operation(record, device);
    if (test.script == "0005") {
      keyboard.Detach();
    }
    PlaySteps(operation, test);
    EXPECT_EQ(operation.Percents(), std::vector<int>{0}) << test.what;
  }
}

}  // namespace
