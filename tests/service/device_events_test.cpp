// Keyboards and DFU devices that come and go, one at a time and several at once.

#include "service/device_events.h"

#include "service/package_location.h"
#include "service/tick_thread.h"
#include "service/update_decision.h"
#include "tests/support/service_test.h"

namespace {

constexpr CM_NOTIFY_ACTION Arrival = CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL;
constexpr CM_NOTIFY_ACTION Removal = CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL;

class DeviceEventsTest : public ServiceTest {
 protected:
  DeviceEventsTest() { LogOnUser(); }

  // An event as the system announces it, on a thread of its own.
  Thread Announce(PCM_NOTIFY_CALLBACK callback, CM_NOTIFY_ACTION action = Arrival) {
    return OnThread([callback, action] {
      EXPECT_EQ(callback(nullptr, nullptr, action, nullptr, 0), DWORD{ERROR_SUCCESS});
    });
  }
};

TEST_F(DeviceEventsTest, OnlyAnArrivalDoesMoreThanWriteItsLine) {
  struct Row {
    PCM_NOTIFY_CALLBACK callback;
    CM_NOTIFY_ACTION action;
    const char* line;
    u64 packageSearches;
    u64 keyboardSearches;
  };
  const auto keyboard = OnKeyboardInterfaceEvent;
  const auto dfu = OnDfuInterfaceEvent;
  const Row rows[] = {
      {keyboard, Arrival, "Keyboard attached\n", 1, 1},
      {keyboard, Removal, "Keyboard detached\n", 0, 0},
      {keyboard, CM_NOTIFY_ACTION_DEVICEQUERYREMOVE, "Keyboard Defalut \n", 0, 0},
      {dfu, Arrival, "Keyboard DFU attached\n", 1, 0},
      {dfu, Removal, "Keyboard DFU detached\n", 0, 0},
      {dfu, CM_NOTIFY_ACTION_DEVICEQUERYREMOVE, "Keyboard Defalut \n", 0, 0},
  };
  for (const Row& row : rows) {
    LookFromHere();
    const u64 packages = TimesCalled(Call::FindFirstFileA);
    const u64 keyboards = TimesCalled(Call::CM_Get_Device_Interface_List_SizeW);
    WaitFor(Announce(row.callback, row.action));

    EXPECT_EQ(Lines(), Texts{row.line}) << row.line << row.action;
    EXPECT_EQ(TimesCalled(Call::FindFirstFileA) - packages, row.packageSearches) << row.line;
    EXPECT_EQ(TimesCalled(Call::CM_Get_Device_Interface_List_SizeW) - keyboards,
              row.keyboardSearches)
        << row.line;
  }
}

TEST_F(DeviceEventsTest, TwoArrivalsAtOnceBeginOneUpdate) {
  InstallHollowPackage();
  SelectPackageFolder();
  KeyboardOptions options;
  options.detachDelayMs = 1;
  const simulator::VirtualKeyboard& keyboard = PlugIn(options);
  const Thread arrivals[] = {Announce(OnKeyboardInterfaceEvent),
                             Announce(OnKeyboardInterfaceEvent)};
  WaitFor(arrivals[0]);
  WaitFor(arrivals[1]);
  EXPECT_EQ(Words(), Texts{"START"});
  EXPECT_EQ(keyboard.enterDfuReports(), 1u);
}

// The device is back 1.2 s after the report, long before the start-up decision looks for it.
TEST_F(DeviceEventsTest, ArrivalsDuringTheStartUpDecisionDoNotDisturbIt) {
  const simulator::Package package = InstallPackage();
  SelectPackageFolder();
  simulator::VirtualKeyboard& keyboard = PlugIn();
  OnThread([] { TickThread(nullptr); });
  const Thread decision = OnThread([] { EvaluateUpdate(1); });
  PassTimeUntil("the keyboard is in DFU mode",
                [&] { return keyboard.mode() == simulator::KeyboardMode::Dfu; });
  PassTime(100);
  const Thread arrivals[] = {Announce(OnKeyboardInterfaceEvent), Announce(OnDfuInterfaceEvent),
                             Announce(OnDfuInterfaceEvent)};
  for (const Thread& arrival : arrivals) {
    WaitFor(arrival);
  }
  EXPECT_LT(nowMs(), 2'000u) << "an arrival waited for the decision's sleep";

  WaitFor(decision);
  PassTimeUntil("the keyboard runs the package's firmware",
                [&] { return keyboard.runningVersion() == package.version; });
  PassTime(10'000);
  EXPECT_TRUE(keyboard.FlashHolds(package.contents.targets[0].elements));
  EXPECT_EQ(CountLines("\nErase successful!!!\n"), 1u);
  EXPECT_EQ(Words(), (Texts{"START", "COMPLETE"}));
  EXPECT_EQ(keyboard.enterDfuReports(), 1u);
}

// The decision's search cuts the path that the preparation is about to open.
TEST_F(DeviceEventsTest, ADecisionWaitsForThePreparationUnderWay) {
  InstallHollowPackage();
  SelectPackageFolder();
  PlugInInDfuMode();
  Thread decision;
  AtCall(Call::OpenBinaryFile, 1, [&] {
    decision = Announce(OnKeyboardInterfaceEvent);
    PassTime(100);
  });
  WaitFor(Announce(OnDfuInterfaceEvent));
  WaitFor(decision);
  EXPECT_EQ(CountLines("File is opened\n"), 1u);
}

}  // namespace
