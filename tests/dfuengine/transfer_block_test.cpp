// One DNLOAD with its status check, and the requests that it is made of.

#include "dfuengine/dfu_requests.h"
#include "dfuengine/flash_operation.h"
#include "tests/dfuengine/operation_test.h"

namespace {

class TransferBlockTest : public OperationTest {
 protected:
  TransferBlockTest() { AddElement(0x08004000, 2500); }

  void CheckErase(const std::vector<ScriptCase>& cases) {
    Check<FlashOperation>(&OperationThread::SendErase, cases);
  }
  void CheckPointer(const std::vector<ScriptCase>& cases) {
    Check<FlashOperation>(&OperationThread::SendSetAddress, cases);
  }
  void CheckBlock(const std::vector<ScriptCase>& cases) {
    Check<FlashOperation>(&OperationThread::SendBlock, cases);
  }
};

TEST_F(TransferBlockTest, AcceptsWhatTheDeviceTakes) {
  CheckErase({
      {"busy",
       "[State] GETSTATE=2 [State] [Dnload] ERASE@08004000 [Status] GETSTATUS=0,4,11259375 "
       "[Status] GOOD:11259375"},
      {"no state",
       "[State] GETSTATE! [State] [Dnload] ERASE@08004000 [Status] GETSTATUS=0,5 "
       "[Status] GOOD:0"},
  });
  CheckPointer({
      {"dfuERROR before",
       "[State] GETSTATE=10 [State] [Clear] CLRSTATUS GETSTATE=10 [Clear] "
       "CLRSTATUS GETSTATE=2 [Clear] [Dnload] POINTER@08004000 [Status] GETSTATUS=0,5 [Status] "
       "GOOD:0"},
      {"a short answer leaves the state", "GETSTATE=5 POINTER@08004000 GETSTATUS=0 GOOD:0"},
  });
  CheckBlock({
      {"a poll time, but not busy",
       "[Dnload] BLOCK3:1024 [Status] GETSTATUS=0,5,10000 [Status] GOOD:0"},
      {"dfuMANIFEST", "[Dnload] BLOCK3:1024 [Status] GETSTATUS=0,7,50 FREE CLOSE [Status] GOOD:0"},
  });
}

TEST_F(TransferBlockTest, SendsTheSameAgain) {
  CheckErase({
      {"the command stays",
       "GETSTATE=2 ERASE@08004000! GETSTATE=2 GETSTATE=2 ERASE@08004000! "
       "GETSTATE=5 GETSTATE=5 ERASE@08004000 GETSTATUS=0,4,20 GOOD:20"},
  });
  CheckPointer({
      {"the second status shows dfuERROR",
       "GETSTATE=10 CLRSTATUS! GETSTATE=2 POINTER@08004000 GETSTATUS! GETSTATUS=8,10 "
       "CLRSTATUS! GETSTATE=2 POINTER@08004000 GETSTATUS=0,5 GOOD:0"},
      {"a dfuERROR of before is no reason to give up when the state cannot be read",
       "GETSTATE=2 POINTER@08004000 GETSTATUS=8,10 CLRSTATUS GETSTATE! POINTER@08004000 "
       "GETSTATUS=0,5 GOOD:0"},
  });
  CheckBlock({
      {"dfuERROR after a refusal",
       "[Dnload] BLOCK3:1024! [State] GETSTATE=10 [State] [Clear] "
       "CLRSTATUS! [Dnload] BLOCK3:1024 [Status] GETSTATUS=0,5 [Status] GOOD:0"},
      {"dfuERROR counts before bStatus",
       "[Dnload] BLOCK3:1024 [Status] GETSTATUS=3,10 [Status] "
       "[Clear] CLRSTATUS! [Dnload] BLOCK3:1024 [Status] GETSTATUS=0,5 [Status] GOOD:0"},
      {"a good second status does not help",
       "[Dnload] BLOCK3:1024 [Status] GETSTATUS! [State] "
       "GETSTATUS=0,5 [State] [Dnload] BLOCK3:1024 [Status] GETSTATUS=0,4,6 [Status] GOOD:6"},
      {"nor is a bad one judged",
       "BLOCK3:1024 GETSTATUS! GETSTATUS=3,6 BLOCK3:1024 GETSTATUS=0,5 GOOD:0"},
  });
}

TEST_F(TransferBlockTest, GivesUp) {
  CheckErase({
      {"dfuERROR does not go away",
       "GETSTATE=10 CLRSTATUS GETSTATE=10 CLRSTATUS GETSTATE=10 "
       "CLRSTATUS GETSTATE=10 ABORT 500A"},
      {"the state cannot be read again", "GETSTATE=10 CLRSTATUS GETSTATE! ABORT 500A"},
  });
  CheckBlock({
      {"three refusals",
       "[Dnload] BLOCK3:1024! [State] GETSTATE=5 [State] [Dnload] BLOCK3:1024! "
       "[State] GETSTATE=5 [State] [Dnload] BLOCK3:1024! [State] GETSTATE=5 [State] [State:500A] "
       "ABORT 500A"},
      {"three times dfuERROR",
       "BLOCK3:1024 GETSTATUS=3,10 CLRSTATUS BLOCK3:1024 GETSTATUS=3,10 "
       "CLRSTATUS BLOCK3:1024 GETSTATUS=3,10 CLRSTATUS ABORT 500A"},
      {"no state", "[Dnload] BLOCK3:1024! [State] GETSTATE! [State:500A] ABORT 500A"},
      {"no status, twice",
       "[Dnload] BLOCK3:1024 [Status] GETSTATUS! [State] GETSTATUS! [State:500A] ABORT 500A"},
      {"an error: no ABORT",
       "[Dnload] BLOCK3:1024 [Status] GETSTATUS=3,5 [Status] [Status:500B] 500B"},
      {"dfuMANIFEST-SYNC: no ABORT",
       "[Dnload] BLOCK3:1024 [Status] GETSTATUS=0,6 [Status] [Status:5009] 5009"},
      {"dfuMANIFEST-WAIT-RESET", "BLOCK3:1024 GETSTATUS=0,8 FREE CLOSE 5009"},
      {"dfuMANIFEST in the second status: nothing more is sent",
       "[Dnload] BLOCK3:1024 [Status] GETSTATUS! [State] GETSTATUS=0,7 FREE CLOSE [State] [Dnload] "
       "[State] [State:500A] 500A"},
  });
}

TEST_F(TransferBlockTest, RefusesWhatIsNotThereWithoutARequest) {
  struct {
    const char* what;
    void (*spoil)(OperationContext& work);
  } const cases[] = {
      {"block 1", [](OperationContext& work) { work.blockNumber = 1; }},
      {"no such element", [](OperationContext& work) { work.elementIndex = 1; }},
      {"no image", [](OperationContext& work) { work.image = nullptr; }},
      {"a byte more than the element has",
       [](OperationContext& work) { work.blockNumber = 4, work.length = 453; }},
      {"more bytes than a command has", [](OperationContext& work) { work.blockNumber = 0; }},
      {"an image that is not valid", [](OperationContext& work) { work.image->Valid = 0; }},
  };
  for (const auto& test : cases) {
    OperationContext record = Record(OperationDownload);
    Probe<FlashOperation> operation(record, device);
    OperationContext work = Open(operation);
    test.spoil(work);
    device.Play("[Dnload:5008]");
    EXPECT_EQ(operation.TransferBlock(work), 0);
    device.ExpectPlayed(test.what);
  }
}

TEST_F(TransferBlockTest, PublishesCommandAndAddress) {
  OperationContext record = Record(OperationDownload);
  Probe<FlashOperation> operation(record, device);
  OperationContext work = Open(operation);
  device.Play("BLOCK3:1024 GETSTATUS=0,5 GETSTATE=2 ERASE@08004000 GETSTATUS=0,5");
  EXPECT_EQ(operation.SendBlock(work), 1);
  EXPECT_EQ(operation.published.back().address, 0x08004400u);
  operation.published.clear();
  EXPECT_EQ(operation.SendErase(work), 1);
  EXPECT_EQ(operation.published.front().command, CommandErase);
  EXPECT_EQ(operation.published.back().command, 0u);
  EXPECT_EQ(operation.published.back().address, 0x08004000u);
}

TEST_F(TransferBlockTest, RequestsNeedAHandleAndABuffer) {
  HANDLE file = nullptr;
  WINUSB_INTERFACE_HANDLE none = nullptr;
  DfuStatus dfuStatus{};
  u8 data = 0;
  OperationContext record = Record(OperationDownload);
  EXPECT_EQ(RequestDownload(none, 2, &data, 1), StatusNoInterfaceHandle);
  EXPECT_EQ(RequestStatus(file, none, &dfuStatus), StatusNoInterfaceHandle);
  EXPECT_EQ(RequestClearStatus(none), StatusNoInterfaceHandle);
  EXPECT_EQ(RequestState(none, data), StatusNoInterfaceHandle);
  EXPECT_EQ(RequestAbort(none), StatusNoInterfaceHandle);
  Probe<FlashOperation> operation(record, device);
  OperationContext work = Open(operation);
  EXPECT_EQ(RequestStatus(work.fileHandle, work.winUsbHandle, nullptr), StatusNoInterfaceHandle);
  CloseDfuHandles(work.fileHandle, work.winUsbHandle);
  EXPECT_EQ(machine.gate.CountOf(platform::Call::WinUsb_ControlTransfer), 0u);
}

}  // namespace
