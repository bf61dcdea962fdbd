// The steps of an erase and of a download, against a device whose every answer is scripted.

#include "dfuengine/flash_operation.h"

#include "tests/dfuengine/operation_test.h"

namespace {

using Percents = std::vector<int>;

// What most scripts begin and end with.
const std::string Opened = "OPEN SELECT=0 GETSTATUS=0,2 GETSTATUS=0,2 ";
const std::string PointerSet = Opened + "GETSTATE=2 POINTER@08000000 GETSTATUS=0,5 / ";
const std::string BlockBusy = PointerSet + "BLOCK2:1024 GETSTATUS=0,4,8 /8 ";
const std::string Closed = "GETSTATUS=0,5 GETSTATUS=0,5 ABORT GETSTATUS=0,2 DONE:100";

class FlashStepsTest : public OperationTest {
 protected:
  // Runs a whole operation by the script; the percentages that it published.
  Percents Run(u32 operationCode, const ScriptCase& test) {
    OperationContext record = Record(operationCode);
    Probe<FlashOperation> operation(record, device);
    PlaySteps(operation, test);
    return operation.Percents();
  }

  void Download(const std::vector<ScriptCase>& cases) {
    for (const ScriptCase& test : cases) {
      Run(OperationDownload, test);
    }
  }

  void SetTransferSize(u16 transferSize) {
    keyboard.Change([=](simulator::KeyboardOptions& options) {
      options.bootloader.transferSize = transferSize;
    });
  }
};

TEST_F(FlashStepsTest, ErasesSectorBySector) {
  for (const u32 address : {0x08004000, 0x08000000, 0x08010000}) {
    AddElement(address, 16);
  }
  const std::string script =
      Opened +
      "GETSTATE=2 ERASE@08004000 GETSTATUS=0,4,250 /250 GETSTATUS=0,4,30 /30 GETSTATUS=0,5 / "
      "GETSTATE=5 ERASE@08000000 GETSTATUS=0,5,250 / GETSTATE=5 ERASE@08010000 GETSTATUS=0,4,0 / "
      "GETSTATUS=0,5 / " +
      Closed;
  EXPECT_EQ(Run(OperationErase, {"three sectors", script}), (Percents{0, 33, 66, 99, 100}));
}

TEST_F(FlashStepsTest, DownloadsBlockByBlock) {
  AddElement(0x08000000, 2500);
  const std::string script =
      Opened +
      "GETSTATE=2 POINTER@08000000 GETSTATUS=0,4,1 /1 GETSTATUS=0,5 / BLOCK2:1024 GETSTATUS=0,4,8 "
      "/8 GETSTATUS=0,5 / BLOCK3:1024 GETSTATUS=0,5 / BLOCK4:452 GETSTATUS=0,5 / " +
      Closed;
  EXPECT_EQ(Run(OperationDownload, {"three blocks", script}), (Percents{0, 33, 66, 100}));

  platform::Bytes sent;
  for (const platform::TransferRecord& each : Transfers()) {
    if (each.setup.RequestType == 0x21 && each.setup.Request == 1 && each.setup.Value > 1) {
      sent.insert(sent.end(), each.data.begin(), each.data.end());
    }
  }
  EXPECT_EQ(sent, platform::Bytes(image.Elements[0].Data, image.Elements[0].Data + 2500));
}

TEST_F(FlashStepsTest, DownloadsElementByElement) {
  AddElement(0x08000000, 1024);
  AddElement(0x08004000, 0);
  AddElement(0x0800C000, 2048);
  const std::string script =
      PointerSet +
      "BLOCK2:1024 GETSTATUS=0,5 / GETSTATE=5 POINTER@08004000 GETSTATUS=0,5 / GETSTATE=5 "
      "POINTER@0800C000 GETSTATUS=0,5 / BLOCK2:1024 GETSTATUS=0,5 / BLOCK3:1024 GETSTATUS=0,5 / " +
      Closed;
  EXPECT_EQ(Run(OperationDownload, {"1, 0 and 2 blocks", script}), (Percents{0, 33, 66, 100}));
}

TEST_F(FlashStepsTest, PublishesEachStage) {
  AddElement(0x08000000, 1);
  Download(
      {{"one byte, sent twice",
        "[Opening] OPEN [Selecting] SELECT=0 [Status] GETSTATUS=0,2 [Status] GETSTATUS=0,2 "
        "[Status] "
        "[State] GETSTATE=2 [State] [Dnload] POINTER@08000000 [Status] GETSTATUS=0,5 [Status] / "
        "[Status] [Dnload] BLOCK2:1 [Status] GETSTATUS=0,4,4 [Status] /4 [Status] GETSTATUS=3,5 "
        "[Status] [Clear] [Dnload] BLOCK2:1 [Status] GETSTATUS=0,5 [Status] / [Status] "
        "GETSTATUS=0,5 "
        "[Status] GETSTATUS=0,5 [Status] [Abort] ABORT [Status] GETSTATUS=0,2 [Status] DONE:100"}});
}

TEST_F(FlashStepsTest, SendsAgainWhatTheDeviceReportsAnErrorFor) {
  AddElement(0x08000000, 1024);
  Download({
      {"a block, then from dfuERROR", BlockBusy +
                                          "GETSTATUS=3,5 BLOCK2:1024 GETSTATUS=0,4,8 /8 "
                                          "GETSTATUS=3,10 CLRSTATUS BLOCK2:1024 GETSTATUS=0,5 / " +
                                          Closed},
      {"a pointer",
       Opened +
           "GETSTATE=2 POINTER@08000000 GETSTATUS=0,4,1 /1 GETSTATUS=8,10 "
           "CLRSTATUS GETSTATE=2 POINTER@08000000 GETSTATUS=0,5 / BLOCK2:1024 GETSTATUS=0,5 / " +
           Closed},
  });
  Run(OperationErase, {"an erase", Opened +
                                       "GETSTATE=2 ERASE@08000000 GETSTATUS=0,4,9 /9 "
                                       "GETSTATUS=4,4 GETSTATE=5 ERASE@08000000 GETSTATUS=0,5 / " +
                                       Closed});
}

TEST_F(FlashStepsTest, CountsErrorsUntilTheNextGoodStatus) {
  AddElement(0x08000000, 2048);
  const std::string again = "GETSTATUS=3,5 BLOCK2:1024 GETSTATUS=0,4,8 /8 ";
  const std::string twice = BlockBusy + again + again;
  Download({
      {"the third one ends it", twice + "GETSTATUS=3,5 ABORT 500A"},
      {"and is cleared first", twice + "GETSTATUS=3,10 CLRSTATUS ABORT 500A"},
      {"busy is good", twice + "GETSTATUS=0,4,8 /8 " + again + again + "GETSTATUS=3,5 ABORT 500A"},
      {"so is idle", twice +
                         "GETSTATUS=0,5 / BLOCK3:1024 GETSTATUS=0,4,8 /8 GETSTATUS=3,5 "
                         "BLOCK3:1024 GETSTATUS=0,5 / " +
                         Closed},
      {"the answer to the block itself is not",
       BlockBusy + again +
           "GETSTATUS=3,5 BLOCK2:1024 "
           "GETSTATUS=0,5 / BLOCK3:1024 GETSTATUS=0,4,8 /8 GETSTATUS=3,5 ABORT 500A"},
  });
}

TEST_F(FlashStepsTest, EndsWithWhatWentWrong) {
  AddElement(0x08000000, 1024);
  Download({
      {"the setting is refused", "OPEN SELECT=0! 500A"},
      {"the device does not become idle", "OPEN SELECT=0 GETSTATUS! CLRSTATUS! ABORT 500A"},
      {"the command fails", Opened + "GETSTATE=2 POINTER@08000000 GETSTATUS=8,5 500B"},
      {"the block fails", PointerSet + "BLOCK2:1024 GETSTATUS=3,5 500B"},
      {"no status while busy", BlockBusy + "GETSTATUS! ABORT 500A"},
      {"dfuIDLE while busy", BlockBusy + "GETSTATUS=0,2 ABORT 5009"},
      {"dfuMANIFEST while busy", BlockBusy + "GETSTATUS=0,7 FREE CLOSE 5009"},
      {"dfuMANIFEST after a block", PointerSet + "BLOCK2:1024 GETSTATUS=0,7,9 FREE CLOSE / 5009"},
      {"all is written, but the device does not become idle",
       PointerSet + "BLOCK2:1024 GETSTATUS=0,5 / GETSTATUS=0,5 GETSTATUS! ABORT 500A:100"},
  });
}

TEST_F(FlashStepsTest, IsDoneAtOnceOnlyWithASoundEmptyImage) {
  Download({{"no elements", Opened + "DONE:100"}});
  image.Valid = 0;
  Download({{"not valid", Opened + "5008"}});
  OperationContext record = Record(OperationDownload);
  record.image = nullptr;
  Probe<FlashOperation> operation(record, device);
  PlaySteps(operation, {"no image", Opened + "5008"});
}

TEST_F(FlashStepsTest, SelectsTheSettingThatComesFirst) {
  keyboard.Change(
      [](simulator::KeyboardOptions& options) { options.alternateSettings.front().number = 3; });
  Download({{"setting 3", "OPEN SELECT=3 GETSTATUS=0,2 GETSTATUS=0,2 DONE:100"}});
  FailCall(platform::Call::WinUsb_QueryInterfaceSettings, ERROR_NO_MORE_ITEMS);
  Download({{"not readable", "[Opening] OPEN [Selecting] / [Selecting:5009] ABORT 5009"}});
}

// Blocks of one byte, so that there are more of them than 16 bits hold.
TEST_F(FlashStepsTest, CountsItsProgressInFullWidth) {
  SetTransferSize(1);
  const struct {
    u32 operationCode;
    std::vector<u32> sizes;
    u16 totalBlocks;
    u32 elementIndex;
    u16 blockNumber;
    int percent;
  } cases[] = {
      {OperationDownload, {65534, 2}, 0, 1, 2, 98},
      {OperationDownload, {65534, 3}, 1, 0, 78, 0},
      {OperationDownload, {33000, 33000}, 464, 0, 472, 0},
      {OperationDownload, {33000, 33000}, 464, 1, 33001, 98},
      {OperationDownload, {100, 0}, 100, 1, 2, 99},
      {OperationDownload, {0, 0}, 0, 1, 2, 0},
      {OperationErase, std::vector<u32>(300, 0), 0, 149, 0, 49},
      {OperationErase, std::vector<u32>(300, 0), 0, 299, 0, 99},
  };
  for (const auto& test : cases) {
    SetSizes(test.sizes);
    OperationContext record = Record(test.operationCode);
    Probe<FlashOperation> operation(record, device);
    EXPECT_EQ(operation.totalBlocks, test.totalBlocks);
    OperationContext work = operation.Copy();
    work.dfuStatus.bState = dfuDNLOAD_IDLE;
    work.elementIndex = test.elementIndex;
    work.blockNumber = test.blockNumber;
    operation.SetContext(work);
    operation.Step();
    EXPECT_EQ(int{operation.published[1].percent}, test.percent)
        << "element " << test.elementIndex << ", block " << test.blockNumber;
  }
}

}  // namespace
