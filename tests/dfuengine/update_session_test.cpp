#include "dfuengine/update_session.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "common/debug_output.h"
#include "common/status.h"
#include "dfudevice/dfu_device_entry.h"
#include "dfuengine/device_removals.h"
#include "dfuengine/dfu_requests.h"
#include "dfuengine/operation_registry.h"
#include "dfufile/dfu_image.h"
#include "dfufile/image_registry.h"
#include "service/package_location.h"
#include "simulator/hid_side.h"
#include "tests/support/tablet_test.h"

namespace {

using platform::Call;
using Texts = std::vector<std::string>;

constexpr char Stopped[] = "[operation stopped]";
constexpr char Released[] = "[image released]";
constexpr char EraseDone[] = "\nErase successful!!!\n";
constexpr char UpgradeDone[] = "\nUpgrade successful!!!\n";
constexpr char LeaveDone[] = "\nSuccessfully left DFU mode!\n";
constexpr char Error[] = "error:: when updating fw\n";
constexpr char DevicePath[] = "\\\\?\\usb#the#device";
constexpr char OtherPath[] = "\\\\?\\usb#the#other";

// Says when it is stopped. Its thread, once started, waits for that.
class SilentOperation : public OperationThread {
 public:
  explicit SilentOperation(OperationContext& record) : OperationThread(record) {}
  i32 Step() override { return 1; }
  u32 StepTimeout() override { return INFINITE; }
  i32 Stop(DWORD* exitCode) override {
    WriteDebugText(TEXT("[operation stopped]"));
    if (whenStopped) {
      whenStopped();
    }
    return OperationThread::Stop(exitCode);
  }

  std::function<void()> whenStopped;
};

// Says when it is destroyed.
class SilentImage : public DfuImage {
 public:
  SilentImage() : DfuImage(0, 0, nullptr) {}
  ~SilentImage() override { WriteDebugText(TEXT("[image released]")); }
};

class UpdateSessionTest : public TabletTest {
 protected:
  UpdateSessionTest() {
    InstallPackage();
    LogOnUser();
    SelectPackageFolder();
  }

  void TearDown() override {
    ClearSession();
    TabletTest::TearDown();
  }

  static simulator::KeyboardOptions OptionsOfDevice() {
    simulator::KeyboardOptions options;
    options.dfuPath = simulator::Widen(DevicePath);
    return options;
  }
  simulator::VirtualKeyboard& PlugInDevice(
      const simulator::KeyboardOptions& options = OptionsOfDevice()) {
    return PlugInInDfuMode(options);
  }

  // Whether an arrival that is told now begins an update.
  static bool ArrivalIsServed() {
    InterruptedUpdate interrupted;
    return ClearWayForUpdate(interrupted);
  }

  // A session whose current operation has published this. Its image is the upgrade image in a
  // download and another one in the other operations.
  SilentOperation& BeginSession(u32 operationCode, u32 status, u8 percent) {
    DfuImage* image = new SilentImage;
    RegisterImage(&image);
    upgradeImage = image;
    if (operationCode != OperationDownload) {
      upgradeImage = new DfuImage(0, 0, nullptr);
      RegisterImage(&upgradeImage);
    }

    OperationContext record{};
    record.guidA = OperationGuidA;
    std::strcpy(record.devicePath, DevicePath);
    record.operationCode = operationCode;
    record.image = image;
    auto* const operation = new SilentOperation(record);
    operation->operationId = nextId_++;
    operationRegistry.Append(*operation);
    currentOperationId = operation->operationId;
    Publish(*operation, status, percent);
    LookFromHere();
    return *operation;
  }

  static void Publish(OperationThread& operation, u32 status, u8 percent) {
    OperationContext record{};
    operation.GetContext(record);
    record.status = status;
    record.percent = percent;
    operation.SetContext(record);
  }

  static void PublishPhase(OperationThread& operation, u32 phase) {
    OperationContext record{};
    operation.GetContext(record);
    record.phase = phase;
    operation.SetContext(record);
  }

  // The one operation publishes its end, and the next tick sees it.
  static void EndOperation(u32 status, u8 percent) {
    Publish(*operationRegistry.First(), status, percent);
    SessionStep();
  }

  void ClearSession() {
    while (OperationThread* const operation = operationRegistry.First()) {
      currentOperationId = operation->operationId;
      FinishOperation(nullptr);
    }
    while (DfuImage* image = dfuImageRegistry.First()) {
      ReleaseImage(&image);
    }
    currentOperationId = 0;
    upgradeImage = nullptr;
    disconnectNotified = 0;
  }

  // What became of the session since it began, in order.
  Texts Events() const {
    static const std::set<std::string> Kept = {Stopped,   Released, EraseDone,    UpgradeDone,
                                               LeaveDone, Error,    "DISCONNECT", "COMPLETE"};
    Texts events = Lines();
    std::erase_if(events, [](const std::string& line) { return !Kept.contains(line); });
    return events;
  }

  // The record of the operation that the session runs now; its thread was never made.
  static OperationContext CurrentRecord() {
    OperationContext record{};
    OperationThread* const operation = FindOperation(currentOperationId);
    EXPECT_NE(operation, nullptr);
    if (operation != nullptr) {
      operation->GetContext(record);
    }
    return record;
  }

  void LaunchNextWithoutThread() { FailCall(Call::CreateThread, ERROR_NOT_ENOUGH_MEMORY); }

 private:
  u32 nextId_ = 0x90000001;
};

TEST_F(UpdateSessionTest, TickLooksAtTheOperationOnce) {
  constexpr u32 None = 77;
  const struct {
    u32 operationCode;
    u32 status;
    u8 percent;
    u32 notified;
    Texts events;
    u32 nextCode;  // of the operation that runs afterwards
    bool upgradeImageKept;
    u32 notifiedAfter;
  } cases[] = {
      {3, StatusSuccess, 99, 0, {}, 3, true, 0},
      {4, StatusSuccess, 66, 0, {}, 4, true, 0},
      {1, StatusSuccess, 50, 1, {}, 1, true, 1},
      {3, StatusSuccess, 100, 0, {Stopped, EraseDone, Released}, 4, true, 0},
      {4, StatusSuccess, 100, 0, {Stopped, UpgradeDone, Released}, 1, false, 0},
      {1, StatusSuccess, 100, 1, {Stopped, LeaveDone, Released}, None, true, 0},
      {0, StatusSuccess, 100, 0, {Stopped, LeaveDone, Released}, None, true, 0},
      {3, StatusDeviceError, 40, 0, {Error, "DISCONNECT", Stopped, Released}, None, true, 1},
      {4, StatusDeviceError, 40, 0, {Error, "DISCONNECT", Stopped, Released}, None, false, 1},
      {4, StatusRequestFailed, 100, 1, {Error, Stopped, Released}, None, false, 1},
      {1, StatusDeviceNotOpened, 0, 0, {Error, "DISCONNECT", Stopped, Released}, None, true, 1},
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
  simulator::KeyboardOptions options = OptionsOfDevice();
  options.flash = {{0x08000000, {{2, 16 * 1024, 'g'}, {1, 1024, 'f'}, {1, 2048, 'a'}}}};
  options.firmware = {};
  // The first map counts, whatever the numbers of the settings.
  options.alternateSettings = {{3, std::nullopt}, {0, "@Other/0/1*1Ka"}};
  PlugInDevice(options);
  SilentOperation& download = BeginSession(OperationDownload, StatusSuccess, 100);
  OperationContext record = CurrentRecord();
  record.guidA = {};
  download.SetContext(record);
  LaunchNextWithoutThread();
  SessionStep();

  record = CurrentRecord();
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

TEST_F(UpdateSessionTest, OperationThatIsGoneCountsAsFailed) {
  const struct {
    const char* who;
    std::function<void()> look;
    u32 notifiedAfter;
  } cases[] = {
      {"tick", SessionStep, 1},
      {"arrival", [] { EXPECT_TRUE(ArrivalIsServed()); }, 0},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.who);
    LookFromHere();
    currentOperationId = 5;
    disconnectNotified = 0;
    each.look();
    EXPECT_EQ(Events(), (Texts{Error, "DISCONNECT"}));
    EXPECT_EQ(currentOperationId, 0u);
    EXPECT_EQ(disconnectNotified, each.notifiedAfter);
  }
}

TEST_F(UpdateSessionTest, ArrivalEndsASessionThatWillNotGoOn) {
  const struct {
    const char* what;
    u32 operationCode;
    bool isRunning;
    u32 status;
    u8 percent;
    u32 phase;
    bool removed;
    Texts events;
    bool interrupted;
  } cases[] = {
      {"dead thread", 4, false, StatusSuccess, 99, 0, false, {Stopped, Released}, true},
      {"removed", 4, true, StatusSuccess, 99, 0, true, {Stopped, Released}, true},
      {"removed when erased", 3, true, StatusSuccess, 100, 0, true, {Stopped, Released}, true},
      {"removed before the request to leave",
       1,
       true,
       StatusSuccess,
       15,
       PhaseDnload,
       true,
       {Stopped, Released},
       true},
      {"failed",
       4,
       true,
       StatusDeviceError,
       99,
       0,
       false,
       {Error, "DISCONNECT", Stopped, Released},
       false},
      {"leaving",
       1,
       true,
       StatusSuccess,
       15,
       PhaseLeaving,
       false,
       {Stopped, "COMPLETE", LeaveDone, Released},
       false},
      {"about to tell that it left",
       1,
       true,
       StatusSuccess,
       50,
       PhaseLeft,
       true,
       {Stopped, "COMPLETE", LeaveDone, Released},
       false},
      {"left",
       1,
       false,
       StatusSuccess,
       100,
       PhaseLeft,
       false,
       {Stopped, LeaveDone, Released},
       false},
  };
  PlugInDevice();
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    SilentOperation& operation = BeginSession(each.operationCode, each.status, each.percent);
    PublishPhase(operation, each.phase);
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

// The request goes out while the operation is being stopped.
TEST_F(UpdateSessionTest, ALeaveThatIsEndedTooLateIsThrough) {
  PlugInDevice();
  SilentOperation& operation = BeginSession(OperationLeave, StatusSuccess, 15);
  operation.Start();
  operation.whenStopped = [&] { PublishPhase(operation, PhaseLeaving); };
  NoteDfuRemoval();
  InterruptedUpdate interrupted;
  EXPECT_TRUE(ClearWayForUpdate(interrupted));
  EXPECT_EQ(Events(), (Texts{Stopped, "COMPLETE", LeaveDone, Released}));
  EXPECT_FALSE(interrupted.any);
}

// Whoever is told may pull the keyboard, so it is told for the right one and once.
TEST_F(UpdateSessionTest, TellsOfAnInterruptedUpdateUnlessItGoesOn) {
  const struct {
    const char* what;
    bool isInterrupted;
    const char* launchedOn;  // null: nothing was launched
    bool told;
    Texts events;
    u32 notifiedAfter;
  } cases[] = {
      {"nothing was interrupted", false, nullptr, false, {}, 0},
      {"it goes on", true, DevicePath, false, {}, 0},
      {"nothing goes on", true, nullptr, false, {Error, "DISCONNECT"}, 1},
      {"nothing goes on, and that was told", true, nullptr, true, {Error}, 1},
      {"another one begins", true, OtherPath, false, {Error, "DISCONNECT"}, 0},
  };
  PlugInDevice();
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    InterruptedUpdate interrupted;
    interrupted.any = each.isInterrupted;
    std::strcpy(interrupted.devicePath, DevicePath);
    LookFromHere();
    if (each.launchedOn != nullptr) {
      SilentOperation& operation = BeginSession(OperationErase, StatusSuccess, 0);
      OperationContext record = CurrentRecord();
      std::strcpy(record.devicePath, each.launchedOn);
      operation.SetContext(record);
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
  const auto answers = [] {
    DfuDeviceEntry entry;
    OpenFirstDfuDevice(entry);
    u8 state = 0;
    RequestState(entry.winUsbHandle, state);
    CloseDfuDevice(entry);
  };
  const auto answersAndIsRemovedMeanwhile = [&] {
    keyboard.Intercept([](const WINUSB_SETUP_PACKET&, const platform::Bytes&) {
      NoteDfuRemoval();
      return std::optional<platform::UsbReply>();
    });
    answers();
    keyboard.Intercept(nullptr);
  };
  const auto refuses = [&] {
    keyboard.Intercept([](const WINUSB_SETUP_PACKET&, const platform::Bytes&) {
      return std::optional(platform::UsbReply{platform::UsbResult::Stalled, {}, 0});
    });
    answers();
    keyboard.Intercept(nullptr);
  };
  const struct {
    const char* what;
    std::vector<std::function<void()>> events;
    bool isServed;
  } cases[] = {
      {"no removal", {answers}, false},
      {"answered since", {NoteDfuRemoval, NoteDfuRemoval, answers}, false},
      {"not answered since", {answers, NoteDfuRemoval}, true},
      {"removed while it answered", {answersAndIsRemovedMeanwhile}, true},
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
  const auto arrives = [] { EXPECT_FALSE(ArrivalIsServed()); };
  const auto goesOn = [this] {
    LaunchNextWithoutThread();
    EndOperation(StatusSuccess, 100);
  };
  const auto fails = [] { EndOperation(StatusRequestFailed, 50); };
  const auto leaves = [] { EndOperation(StatusSuccess, 100); };
  const auto prepares = [] { EXPECT_TRUE(ArrivalIsServed()); };
  simulator::VirtualKeyboard& keyboard = PlugInDevice();
  const auto unplugged = [&] { keyboard.Detach(); };
  const auto unlisted = [this] {
    FailCall(Call::CM_Get_Device_Interface_List_SizeW, CR_FAILURE);
    EXPECT_FALSE(TakeRememberedArrival());
  };
  const struct {
    const char* what;
    u32 operationCode;
    std::vector<std::function<void()>> events;
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
    const u64 opened = machine.handles.OpenedEver(platform::HandleKind::File);
    EXPECT_EQ(TakeRememberedArrival(), each.isDue);
    EXPECT_EQ(machine.handles.OpenedEver(platform::HandleKind::File), opened);
    EXPECT_FALSE(TakeRememberedArrival());
    ClearSession();
  }
}

}  // namespace
