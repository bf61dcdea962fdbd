// What an arrival of the DFU device means to the session that is under way.

#include "dfudevice/dfu_device_entry.h"
#include "dfuengine/device_removals.h"
#include "dfuengine/dfu_requests.h"
#include "tests/dfuengine/update_session_test.h"

namespace {

using Steps = std::vector<std::function<void()>>;

TEST_F(UpdateSessionTest, ArrivalEndsASessionThatWillNotGoOn) {
  constexpr u32 Good = StatusSuccess;
  const struct {
    const char* what;
    u32 operationCode;
    bool isRunning;
    u32 status;
    u8 percent;
    u32 phase;
    bool removed;
    const char* events;
    bool interrupted;
  } cases[] = {
      {"dead thread", 4, false, Good, 99, 0, false, "stopped released", true},
      {"removed", 4, true, Good, 99, 0, true, "stopped released", true},
      {"removed when erased", 3, true, Good, 100, 0, true, "stopped released", true},
      {"before the request", 1, true, Good, 15, PhaseDnload, true, "stopped released", true},
      {"failed", 4, true, 0x1234500B, 99, 0, false, "error DISCONNECT stopped released", false},
      {"leaving", 1, true, Good, 15, PhaseLeaving, false, "stopped COMPLETE left released", false},
      {"about to tell", 1, true, Good, 50, PhaseLeft, true, "stopped COMPLETE left released",
       false},
      {"left", 1, false, Good, 100, PhaseLeft, false, "stopped left released", false},
  };
  PlugInDevice();
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    SilentOperation& operation = BeginSession(each.operationCode, each.status, each.percent);
    Publish(operation, [&](OperationContext& record) { record.phase = each.phase; });
    if (each.isRunning) {
      operation.Start();
    }
    if (each.removed) {
      NoteDfuRemoval();
    }
    InterruptedUpdate interrupted;
    EXPECT_TRUE(ClearWayForUpdate(interrupted));
    EXPECT_EQ(Events(), each.events);
    EXPECT_EQ(interrupted.any, each.interrupted);
    EXPECT_STREQ(interrupted.devicePath, each.interrupted ? DevicePath : "");
    EXPECT_EQ(currentOperationId, 0u);
    EXPECT_EQ(disconnectNotified, 0u);
    ClearSession();
  }
}

// The thread ends between two looks of the arrival, at the thread and at what it has published.
TEST_F(UpdateSessionTest, ArrivalTakesAnOperationThatHasJustEndedForNoDeadOne) {
  PlugInDevice();
  SilentOperation& operation = BeginSession(OperationErase, StatusSuccess, 50);
  bool ends = false;
  operation.stepTimeoutMs = 1;
  operation.whenStepping = [&] {
    if (ends) {
      Publish(operation, [](OperationContext& record) { record.percent = 100; });
    }
    return ends ? 0 : 1;
  };
  operation.Start();
  PassTime(10);
  AtCall(Call::WaitForSingleObject, 2, [&] {
    ends = true;
    PassTime(10);
  });
  EXPECT_FALSE(ArrivalIsServed());
  EXPECT_TRUE(ends);
  EXPECT_EQ(Events(), "");
}

// The request goes out while the operation is being stopped.
TEST_F(UpdateSessionTest, ALeaveThatIsEndedTooLateIsThrough) {
  PlugInDevice();
  SilentOperation& operation = BeginSession(OperationLeave, StatusSuccess, 15);
  operation.Start();
  operation.whenStopped = [&] {
    Publish(operation, [](OperationContext& record) { record.phase = PhaseLeaving; });
  };
  NoteDfuRemoval();
  InterruptedUpdate interrupted;
  EXPECT_TRUE(ClearWayForUpdate(interrupted));
  EXPECT_EQ(Events(), "stopped COMPLETE left released");
  EXPECT_FALSE(interrupted.any);
}

// The keyboard is pulled again while the arrival ends what its first removal left.
TEST_F(UpdateSessionTest, RemovalDuringAnArrivalStands) {
  PlugInDevice();
  BeginSession(OperationDownload, StatusSuccess, 50).whenStopped = NoteDfuRemoval;
  NoteDfuRemoval();
  EXPECT_TRUE(ArrivalIsServed());
  BeginSession(OperationDownload, StatusSuccess, 50).Start();
  EXPECT_TRUE(ArrivalIsServed());

  // An answer that comes late brings back none of them.
  ForgetDfuRemovals(DfuRemovalsTold());
  ForgetDfuRemovals(1);
  EXPECT_FALSE(DfuRemovalStands(DfuRemovalsTold()));
}

// Whoever is told may pull the keyboard, so it is told for the right one and once.
TEST_F(UpdateSessionTest, TellsOfAnInterruptedUpdateUnlessItGoesOn) {
  const struct {
    const char* what;
    bool isInterrupted;
    const char* launchedOn;  // null: nothing was launched
    bool told;
    const char* events;
    u32 notifiedAfter;
  } cases[] = {
      {"nothing was interrupted", false, nullptr, false, "", 0},
      {"it goes on", true, DevicePath, false, "", 0},
      {"nothing goes on", true, nullptr, false, "error DISCONNECT", 1},
      {"nothing goes on, and that was told", true, nullptr, true, "error", 1},
      {"another one begins", true, OtherPath, false, "error DISCONNECT", 0},
  };
  PlugInDevice();
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    InterruptedUpdate interrupted;
    interrupted.any = each.isInterrupted;
    std::strcpy(interrupted.devicePath, DevicePath);
    LookFromHere();
    if (each.launchedOn != nullptr) {
      Publish(BeginSession(OperationErase, StatusSuccess, 0),
              [&](OperationContext& record) { CopyDevicePath(record, each.launchedOn); });
    }
    TellUnlessResumed(interrupted, each.told);
    EXPECT_EQ(Events(), each.events);
    EXPECT_EQ(disconnectNotified, each.notifiedAfter);
    ClearSession();
  }
}

// It was another device's removal, or an old one told late.
TEST_F(UpdateSessionTest, AnswerOfTheDeviceTakesBackARemovalToldBefore) {
  simulator::VirtualKeyboard& keyboard = PlugInDevice();
  // Asks the device, which answers as it does or as it is told to.
  const auto asks = [&](const std::function<std::optional<platform::UsbReply>()>& answer) {
    return [&keyboard, answer] {
      keyboard.Intercept([&](const auto&, const auto&) { return answer(); });
      DfuDeviceEntry entry;
      OpenFirstDfuDevice(entry);
      u8 state = 0;
      RequestState(entry.winUsbHandle, state);
      CloseDfuDevice(entry);
      keyboard.Intercept(nullptr);
    };
  };
  const auto answers = asks([] { return std::nullopt; });
  const auto isRemoved = asks([] { return NoteDfuRemoval(), std::nullopt; });
  const auto refuses = asks([] { return platform::UsbReply{platform::UsbResult::Stalled, {}}; });
  const struct {
    const char* what;
    Steps events;
    bool isServed;
  } cases[] = {
      {"no removal", {answers}, false},
      {"answered since", {NoteDfuRemoval, NoteDfuRemoval, answers}, false},
      {"not answered since", {answers, NoteDfuRemoval}, true},
      {"removed while it answered", {isRemoved}, true},
      {"refused since", {NoteDfuRemoval, refuses}, true},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    EXPECT_TRUE(ArrivalIsServed());
    BeginSession(OperationDownload, StatusSuccess, 50).Start();
    for (const std::function<void()>& event : each.events) {
      event();
    }
    EXPECT_EQ(ArrivalIsServed(), each.isServed);
    ClearSession();
  }
}

TEST_F(UpdateSessionTest, RemembersAnArrivalForTheCaseThatTheOperationFails) {
  // The one operation publishes its end, and the next tick sees it.
  const auto ends = [](u32 status, u8 percent) {
    return [=] {
      Publish(*operationRegistry.First(), [=](OperationContext& record) {
        record.status = status;
        record.percent = percent;
      });
      SessionStep();
    };
  };
  simulator::VirtualKeyboard& keyboard = PlugInDevice();
  const auto arrives = [] { EXPECT_FALSE(ArrivalIsServed()); };
  const auto fails = ends(StatusRequestFailed, 50);
  const auto leaves = ends(StatusSuccess, 100);
  const auto goesOn = [this, leaves] { LaunchNextWithoutThread(), leaves(); };
  const auto prepares = [] { EXPECT_TRUE(ArrivalIsServed()); };
  const auto unplugged = [&] { keyboard.Detach(); };
  const auto unlisted = [this] {
    FailCall(Call::CM_Get_Device_Interface_List_SizeW, CR_FAILURE);
    EXPECT_FALSE(TakeRememberedArrival());
  };
  const struct {
    const char* what;
    u32 operationCode;
    Steps events;
    bool isDue;
  } cases[] = {
      {"it fails", 3, {arrives, fails}, true},
      {"it fails after two arrivals", 4, {arrives, arrives, fails}, true},
      {"it fails without an arrival", 3, {fails}, false},
      {"removed, then it fails", 3, {arrives, NoteDfuRemoval, fails}, true},
      {"it fails, then removed", 3, {arrives, fails, NoteDfuRemoval}, true},
      {"it fails, and no device is listed", 3, {arrives, fails, unplugged}, false},
      {"it fails, and the devices cannot be listed at once", 3, {arrives, fails, unlisted}, true},
      {"it succeeds", 1, {arrives, leaves}, false},
      {"the operation after it fails", 3, {arrives, goesOn, fails}, true},
      {"it fails, and a preparation begins", 4, {arrives, fails, prepares}, false},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    keyboard.AttachInDfuMode();
    EXPECT_TRUE(ArrivalIsServed());
    BeginSession(each.operationCode, StatusSuccess, 50).Start();
    EXPECT_FALSE(TakeRememberedArrival());
    for (const std::function<void()>& event : each.events) {
      event();
    }
    EXPECT_EQ(TakeRememberedArrival(), each.isDue);
    EXPECT_FALSE(TakeRememberedArrival());
    ClearSession();
  }
}

}  // namespace
