// Brings the device to dfuIDLE, from wherever it stands.

#include "dfuengine/flash_operation.h"
#include "tests/dfuengine/operation_test.h"

namespace {

class ResetToIdleTest : public OperationTest {
 protected:
  void CheckReset(const std::vector<ScriptCase>& cases) {
    Check<FlashOperation>(&OperationThread::ResetToIdle, cases);
  }
};

TEST_F(ResetToIdleTest, GetsThereFromEveryState) {
  CheckReset({
      {"dfuIDLE", "[Status] GETSTATUS=0,2 [Status] GETSTATUS=0,2 [Status] GOOD"},
      {"dfuDNLOAD-IDLE",
       "[Status] GETSTATUS=0,5 [Status] GETSTATUS=0,5 [Status] [Abort] ABORT "
       "[Status] GETSTATUS=0,2 [Status] GOOD"},
      {"dfuERROR",
       "[Status] GETSTATUS=3,10 [Clear] CLRSTATUS [Status] GETSTATUS=0,2 [Status] "
       "GETSTATUS=0,2 [Status] GOOD"},
      {"no status at first", "GETSTATUS! CLRSTATUS GETSTATUS=0,2 GETSTATUS=0,2 GOOD"},
      {"dfuDNBUSY, in which ABORT is refused",
       "[Status] GETSTATUS=0,4,90 [Status] GETSTATUS=0,4,90 [Status] [Abort] ABORT! [Clear] "
       "CLRSTATUS! [Status] GETSTATUS=0,2 [Status] GOOD"},
      {"dfuERROR after the ABORT",
       "[Status] GETSTATUS=0,5 [Status] GETSTATUS=0,5 [Status] [Abort] ABORT [Status] "
       "GETSTATUS=15,10 [Status] [Clear] CLRSTATUS [Status] GETSTATUS=0,2 [Status] GOOD"},
      {"dfuERROR again after it was cleared",
       "GETSTATUS=3,10 CLRSTATUS GETSTATUS=3,10 GETSTATUS=3,10 ABORT! CLRSTATUS GETSTATUS=0,2 "
       "GOOD"},
  });
}

TEST_F(ResetToIdleTest, GivesUp) {
  CheckReset({
      {"the error cannot be cleared",
       "[Status] GETSTATUS=3,10 [Clear] CLRSTATUS! [Clear:500A] ABORT 500A"},
      {"no status after it was cleared",
       "[Status] GETSTATUS! [Clear] CLRSTATUS [Status] GETSTATUS! [Status:500A] ABORT 500A"},
      {"no second status", "[Status] GETSTATUS=0,2 [Status] GETSTATUS! [Status:500A] ABORT 500A"},
      {"no status after the ABORT", "GETSTATUS=0,5 GETSTATUS=0,5 ABORT GETSTATUS! ABORT 500A"},
      {"the device stays where it is; here the ABORT goes before the word",
       "[Status] GETSTATUS=0,5 [Status] GETSTATUS=0,5 [Status] [Abort] ABORT [Status] "
       "GETSTATUS=0,5 [Status] ABORT [Status:5009] 5009"},
      {"dfuERROR, and no last status",
       "GETSTATUS=0,5 GETSTATUS=0,5 ABORT GETSTATUS=0,10 CLRSTATUS GETSTATUS! ABORT 5009"},
  });
}

// Whichever status tells it: nothing is sent any more, and nothing closed again.
TEST_F(ResetToIdleTest, LetsGoOfADeviceThatIsAboutToReset) {
  CheckReset({
      {"at once", "GETSTATUS=0,7 FREE CLOSE 500A"},
      {"after the error", "GETSTATUS=3,10 CLRSTATUS GETSTATUS=0,8 FREE CLOSE 500A"},
      {"the second time",
       "[Status] GETSTATUS=0,6 [Status] GETSTATUS=0,7 FREE CLOSE [Status] "
       "[Abort] [Clear] [Status] [Status:500A] 500A"},
      {"after the ABORT", "GETSTATUS=0,6 GETSTATUS=0,6 ABORT GETSTATUS=0,8 FREE CLOSE 5009"},
      {"the last time",
       "GETSTATUS=0,5 GETSTATUS=0,5 ABORT GETSTATUS=0,10 CLRSTATUS GETSTATUS=0,7 FREE CLOSE 5009"},
  });
}

}  // namespace
