// What a tick makes of the session, operation by operation.

#include "tests/dfuengine/update_session_test.h"

#include <algorithm>

#include "common/mutex_guard.h"
#include "common/update_lock.h"

namespace {

TEST_F(UpdateSessionTest, TickLooksAtTheOperationOnce) {
  constexpr u32 None = 77;
  constexpr u32 Good = StatusSuccess;
  const struct {
    u32 operationCode;
    u32 status;
    u8 percent;
    u32 notified;
    const char* events;
    u32 nextCode;  // of the operation that runs afterwards
    bool upgradeImageKept;
    u32 notifiedAfter;
  } cases[] = {
      {3, Good, 99, 0, "", 3, true, 0},
      {4, Good, 66, 0, "", 4, true, 0},
      {1, Good, 50, 1, "", 1, true, 1},
      {3, Good, 100, 0, "stopped erased released", 4, true, 0},
      {4, Good, 100, 0, "stopped written released", 1, false, 0},
      {1, Good, 100, 1, "stopped left released", None, true, 0},
      {0, Good, 100, 0, "stopped left released", None, true, 0},
      {3, StatusDeviceError, 40, 0, "error DISCONNECT stopped released", None, true, 1},
      {4, StatusDeviceError, 40, 0, "error DISCONNECT stopped released", None, false, 1},
      {4, StatusRequestFailed, 100, 1, "error stopped released", None, false, 1},
      {1, StatusDeviceNotOpened, 0, 0, "error DISCONNECT stopped released", None, true, 1},
  };
  PlugInDevice();
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::Message() << "code " << each.operationCode << ", status " << std::hex
                                    << each.status << std::dec << ", percent " << +each.percent);
    const u32 id = BeginSession(each.operationCode, each.status, each.percent).operationId;
    const DfuImage* const upgradeBefore = upgradeImage;
    disconnectNotified = each.notified;
    const bool isFollowed = each.nextCode != None && each.nextCode != each.operationCode;
    if (isFollowed) {
      LaunchNextWithoutThread();
    }

    SessionStep();
    EXPECT_EQ(Events(), each.events);
    EXPECT_EQ(upgradeImage, each.upgradeImageKept ? upgradeBefore : nullptr);
    EXPECT_EQ(disconnectNotified, each.notifiedAfter);
    if (each.nextCode == None) {
      EXPECT_EQ(currentOperationId, 0u);
      EXPECT_EQ(operationRegistry.First(), nullptr);
    } else {
      EXPECT_EQ(currentOperationId != id, isFollowed);
      const OperationContext record = CurrentRecord();
      EXPECT_EQ(record.operationCode, each.nextCode);
      EXPECT_TRUE(record.guidA == OperationGuidA);
      EXPECT_STREQ(record.devicePath, DevicePath);
      EXPECT_EQ(record.image == upgradeImage, each.nextCode == OperationDownload);
    }
    ClearSession();
  }
}

TEST_F(UpdateSessionTest, LeaveGetsABlankImageOfTheReadableSectors) {
  KeyboardOptions options;
  options.flash = {{0x08000000, {{2, 16 * 1024, 'g'}, {1, 1024, 'f'}, {1, 2048, 'a'}}}};
  options.firmware = {};
  // The first map counts, whatever the numbers of the settings.
  options.alternateSettings = {{3, std::nullopt}, {0, "@Other/0/1*1Ka"}};
  PlugInDevice(options);
  Publish(BeginSession(OperationDownload, StatusSuccess, 100),
          [](OperationContext& record) { record.guidA = {}; });
  LaunchNextWithoutThread();
  SessionStep();

  const OperationContext record = CurrentRecord();
  EXPECT_TRUE(record.guidA == OperationGuidA);
  EXPECT_TRUE(record.guidB == LeaveOperationGuidB);
  ASSERT_TRUE(IsRegisteredImage(record.image));
  std::vector<std::pair<u32, u32>> sectors;
  for (u32 i = 0; i < record.image->Elements.size(); ++i) {
    const DfuElement& element = record.image->Elements[i];
    sectors.emplace_back(element.Address, element.Size);
    EXPECT_TRUE(std::all_of(element.Data, element.Data + element.Size,
                            [](u8 byte) { return byte == 0xFF; }));
  }
  EXPECT_EQ(sectors, (std::vector<std::pair<u32, u32>>{
                         {0x08000000, 16384}, {0x08004000, 16384}, {0x08008400, 2048}}));
}

// An arrival ended the session while the tick stood in front of the lock.
TEST_F(UpdateSessionTest, TickThatWaitedFindsTheSessionOver) {
  PlugInDevice();
  BeginSession(OperationDownload, StatusSuccess, 50);
  Thread tick;
  {
    const MutexGuard lock(updateLock.Get());
    tick = OnThread(SessionStep);
    PassTime(10);
    EXPECT_TRUE(ArrivalIsServed());
    EXPECT_EQ(Events(), "stopped released");
  }
  WaitFor(tick);
  EXPECT_EQ(Events(), "stopped released");
}

}  // namespace
