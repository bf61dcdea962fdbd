// Keyboards and DFU devices that come and go, one at a time and several at once.

#include "service/device_events.h"

#include "dfuengine/session_values.h"
#include "dfuengine/update_session.h"
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

// Counted from the report, however long the search before it took.
TEST_F(DeviceEventsTest, AKeyboardThatStaysIsAskedAgainAfterTwoSeconds) {
  InstallHollowPackage();
  SelectPackageFolder();
  KeyboardOptions options;
  options.detachDelayMs = 60'000;
  const simulator::VirtualKeyboard& keyboard = PlugIn(options);
  u64 reportMs = 0;
  AtCall(Call::HidP_GetCaps, 1, [this] { PassTime(5'000); });
  const Thread first = Announce(OnKeyboardInterfaceEvent);
  PassTimeUntil("the first report has come", [&] { return keyboard.enterDfuReports() == 1; });
  reportMs = nowMs();
  const Thread second = Announce(OnKeyboardInterfaceEvent);
  PassTime(1'900);
  EXPECT_EQ(keyboard.enterDfuReports(), 1u);
  PassTimeUntil("the second report has come", [&] { return keyboard.enterDfuReports() == 2; });
  EXPECT_NEAR(static_cast<double>(nowMs() - reportMs), 2'000, 50);
  WaitFor(first);
  WaitFor(second);
  EXPECT_EQ(Words(), (Texts{"START", "START"}));
}

// Each of these tells that a keyboard has left; a decision that waits begins then.
TEST_F(DeviceEventsTest, ADecisionWaitsNoLongerThanForTheDeparture) {
  InstallHollowPackage();
  SelectPackageFolder();
  const struct {
    PCM_NOTIFY_CALLBACK callback;
    CM_NOTIFY_ACTION action;
  } rows[] = {{OnKeyboardInterfaceEvent, Removal}, {OnDfuInterfaceEvent, Arrival}};
  for (const auto& row : rows) {
    KeyboardOptions options;
    options.detachDelayMs = 60'000;
    simulator::VirtualKeyboard& keyboard = PlugIn(options);
    WaitFor(Announce(OnKeyboardInterfaceEvent));
    const Thread second = Announce(OnKeyboardInterfaceEvent);
    PassTime(100);
    EXPECT_EQ(keyboard.enterDfuReports(), 1u);
    WaitFor(Announce(row.callback, row.action));
    const u64 toldMs = nowMs();
    WaitFor(second);
    EXPECT_LT(nowMs() - toldMs, 1'000u);
    EXPECT_EQ(keyboard.enterDfuReports(), 2u);
    keyboard.Detach();
    PassTime(2'000);
  }
}

// Nobody is on the way out after a report that was refused, nor when the keyboard's removal was
// told before the call for the report returned.
TEST_F(DeviceEventsTest, ADecisionWaitsForNobodyWhoIsNotLeaving) {
  InstallHollowPackage();
  SelectPackageFolder();
  for (const u32 refused : {2u, 0u}) {
    KeyboardOptions options;
    options.refusedReports = refused;
    options.detachDelayMs = 60'000;
    simulator::VirtualKeyboard& keyboard = PlugIn(options);
    AtCall(Call::HidD_SetOutputReport, 1,
           [this] { WaitFor(Announce(OnKeyboardInterfaceEvent, Removal)); });
    WaitFor(Announce(OnKeyboardInterfaceEvent));
    const u64 before = nowMs();
    WaitFor(Announce(OnKeyboardInterfaceEvent));
    EXPECT_LT(nowMs() - before, 1'000u) << refused;
    keyboard.Detach();
    PassTime(2'000);
  }
}

// The driver of somebody else's keyboard may take its time; the update that runs beside it has none
// to lose.
TEST_F(DeviceEventsTest, ASlowInterfaceHoldsUpNoTick) {
  const simulator::Package package = InstallPackage();
  SelectPackageFolder();
  simulator::ForeignKeyboard foreign(machine, {});
  foreign.Attach();
  for (const Call call : {Call::CreateFileW, Call::HidD_GetAttributes, Call::HidP_GetCaps,
                          Call::HidD_SetOutputReport, Call::CreateProcessAsUserW}) {
    SCOPED_TRACE(platform::NameOf(call));
    currentOperationId = 77;  // gone: the next tick says so
    LookFromHere();
    simulator::VirtualKeyboard& keyboard = PlugIn();
    AtCall(call, 1, [this] { PassTime(5'000); });
    const Thread decision = Announce(OnKeyboardInterfaceEvent);
    PassTime(100);
    const u64 before = nowMs();
    WaitFor(OnThread(SessionStep));
    EXPECT_EQ(currentOperationId, 0u);
    EXPECT_LT(nowMs() - before, 1'000u);
    WaitFor(decision);
    keyboard.Detach();
    PassTime(2'000);
  }
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

// However many interfaces of the keyboard are announced, and however long it takes to leave.
class OneUpdateTest : public DeviceEventsTest, public OfTable<std::tuple<u32, u32, u64>> {};

TEST_OF_ROW(OneUpdateTest, IsBegunByOneKeyboard) {
  const auto& [interfaces, departureMs, attachMs] = row();
  const simulator::Package package = InstallPackage();
  StartService();
  PassTime(attachMs);
  KeyboardOptions options;
  options.collections[0].keyboardInterfaces = interfaces;
  options.detachDelayMs = departureMs;
  const simulator::VirtualKeyboard& keyboard = PlugIn(options);
  PassTimeUntil("the keyboard runs the package's firmware",
                [&] { return keyboard.runningVersion() == package.version; });
  PassTime(40'000);
  EXPECT_EQ(Words(), (Texts{"START", "COMPLETE"}));
  EXPECT_EQ(keyboard.enterDfuReports(), 1u);
}

ROWS(
    OneUpdateTest, IsBegunByOneKeyboard,
    [](const auto& row) {
      return std::to_string(std::get<0>(row)) + "InterfacesGoneAfter" +
             std::to_string(std::get<1>(row)) + "Ms" +
             (std::get<2>(row) == 0 ? "AtStartUp" : "OnArrival");
    },
    Combine<u32, u32, u64>({1, 2, 3}, {1, 2, 5, 12, 50, 200, 500}, {0, 31'000}));

}  // namespace
