// The life of the service as the control manager sees it.

#include "service/service_main.h"

#include <cstring>

#include "service/device_events.h"
#include "simulator/dfu_descriptors.h"
#include "simulator/hid_side.h"
#include "tests/support/service_test.h"
#include "tests/support/stdout_capture.h"

namespace {

using States = std::vector<DWORD>;

class ServiceMainTest : public ServiceTest {
 protected:
  // The service's entry alone, without the process around it that ends with the stop.
  Thread StartEntry() {
    return OnThread([] { ServiceMain(0, nullptr); });
  }
  static void Handle(DWORD control) {
    EXPECT_EQ(ServiceCtrlHandler(control, 0, nullptr, nullptr), DWORD{NO_ERROR});
  }

  void StartServiceAndPass(u64 milliseconds) {
    StartService();
    PassTime(milliseconds);
  }

  States Reported() const {
    States states;
    for (const platform::StatusReport& report : machine.services.reports.All()) {
      states.push_back(report.status.dwCurrentState);
    }
    return states;
  }
};

TEST_F(ServiceMainTest, EndsAtOnceWhenStartedFromAConsole) {
  machine.services.SetStartedByManager(false);
  StartServiceAndPass(60'000);
  EXPECT_EQ(machine.processExitCode(), -1);
  EXPECT_EQ(Lines(), Texts{});
}

TEST_F(ServiceMainTest, ReportsAndStartsNothingWithoutAHandler) {
  FailCall(Call::RegisterServiceCtrlHandlerExW, ERROR_NOT_ENOUGH_MEMORY);
  StartServiceAndPass(60'000);
  EXPECT_EQ(Reported(), States{});
  EXPECT_EQ(TimesCalled(Call::CreateThread) + TimesCalled(Call::Sleep), 0u);
  EXPECT_EQ(Lines(), Texts{});
}

TEST_F(ServiceMainTest, StartUpKeepsItsOrderAndItsDelays) {
  Watch({Call::SetServiceStatus, Call::CreateThread, Call::FindFirstFileA,
         Call::CM_Get_Device_Interface_List_SizeW, Call::CM_Register_Notification},
        true);
  StartServiceAndPass(40'000);
  const Texts expected = {
      "SetServiceStatus at 0",
      "CreateThread at 10000",
      "FindFirstFileA at 15000",                      // the folder
      "CM_Get_Device_Interface_List_SizeW at 15000",  // a DFU device?
      "CM_Get_Device_Interface_List_SizeW at 15000",  // the keyboard
      "FindFirstFileA at 15000",                      // the package
      "CM_Register_Notification at 30000",
      "CM_Register_Notification at 30000",
      "SetServiceStatus at 30000",
  };
  EXPECT_EQ(Seen(), expected);
  EXPECT_EQ(CountLines("RegisterNotify:: success\n"), 1u);
  EXPECT_EQ(Lines().back(), "RegisterNotify DFU:: success\n");
}

TEST_F(ServiceMainTest, ReportsThreeControlsWhateverTheStateAndNoOther) {
  StartServiceAndPass(31'000);
  // Interrogate, shutdown and others that mean nothing to it lie between those that do.
  const States controls = {4, 3, 2, 2, 5, 6, 14, 128, 0, 0xFFFFFFFF, 3, 2, 1};
  for (const DWORD control : controls) {
    machine.services.SendControl(control);
  }
  PassTime(1);

  EXPECT_EQ(Reported(), (States{2, 4, 5, 4, 6, 7, 6, 7, 5, 4, 6, 7, 3, 1}));
  for (const platform::StatusReport& report : machine.services.reports.All()) {
    const SERVICE_STATUS whole = {0x10, report.status.dwCurrentState, 0xFF, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(&report.status, &whole, sizeof(whole)), 0) << whole.dwCurrentState;
  }
  EXPECT_EQ(machine.services.answers.All().size(), controls.size());
  for (const platform::ControlAnswer& answer : machine.services.answers.All()) {
    EXPECT_EQ(answer.result, DWORD{NO_ERROR}) << "control " << answer.control;
  }
  // The process ends as it stands, with nothing torn down.
  EXPECT_EQ(machine.processExitCode(), 0);
  EXPECT_EQ(machine.handles.OpenCount(platform::HandleKind::Notification), 2u);
}

TEST_F(ServiceMainTest, RunningEndsAPauseDuringStartUp) {
  StartServiceAndPass(5'000);
  machine.services.SendControl(SERVICE_CONTROL_PAUSE);
  PassTime(30'000);
  EXPECT_EQ(Reported(), (States{2, 6, 7, 4}));
}

// A keyboard with older firmware is there; it has been sent into DFU mode when the third of the
// stops comes.
struct StopRow {
  u64 stopMs;
  u64 endMs;  // when the entry returns, down to 100 ms
  u64 tickThreads;
  u64 searches;
  u64 registrations;
  States reports;
};

std::string NameOfStop(const StopRow& row) {
  return "After" + std::to_string(row.stopMs) + "Ms";
}

class StopTest : public ServiceMainTest, public OfTable<StopRow> {};

TEST_OF_ROW(StopTest, EndsTheEntryAfterTheStepUnderWay) {
  const StopRow& stop = row();
  InstallHollowPackage();
  PlugIn();
  const Thread entry = StartEntry();
  PassTime(stop.stopMs);
  Handle(SERVICE_CONTROL_STOP);
  Handle(SERVICE_CONTROL_CONTINUE);  // Hides the stop from whoever looks at the state alone.
  WaitFor(entry);

  EXPECT_EQ(nowMs() / 100 * 100, stop.endMs);
  EXPECT_EQ(TimesCalled(Call::CreateThread), stop.tickThreads);
  EXPECT_EQ(TimesCalled(Call::FindFirstFileA), stop.searches);
  EXPECT_EQ(TimesCalled(Call::CM_Register_Notification), stop.registrations);
  EXPECT_EQ(Reported(), stop.reports);
}

ROWS(StopTest, EndsTheEntryAfterTheStepUnderWay, NameOfStop,
     {StopRow{4'000, 10'000, 0, 0, 0, {2, 3, 1, 5, 4}},
      StopRow{12'000, 15'000, 1, 0, 0, {2, 3, 1, 5, 4}},
      StopRow{17'000, 20'000, 1, 2, 0, {2, 3, 1, 5, 4}},
      StopRow{25'000, 35'000, 1, 3, 0, {2, 3, 1, 5, 4}},
      StopRow{40'400, 41'000, 1, 3, 2, {2, 4, 3, 1, 5, 4}}});

class StopAtRegistrationTest : public ServiceMainTest, public OfTable<u64> {};

TEST_OF_ROW(StopAtRegistrationTest, IsTheLastWord) {
  AtCall(Call::CM_Register_Notification, row(), [] { Handle(SERVICE_CONTROL_STOP); });
  WaitFor(StartEntry());
  EXPECT_EQ(Reported(), (States{2, 3, 1}));
  EXPECT_EQ(TimesCalled(Call::CM_Register_Notification), row());
}

ROWS(StopAtRegistrationTest, IsTheLastWord, NumberOfRow, {1, 2});

// The control manager takes what is reported last for the state.
TEST_F(ServiceMainTest, AStopWaitsForTheReportUnderWay) {
  Thread handler;
  AtCall(Call::SetServiceStatus, 2, [&] {
    handler = OnThread([] { Handle(SERVICE_CONTROL_STOP); });
    PassTime(1);
  });
  WaitFor(StartEntry());
  WaitFor(handler);
  EXPECT_EQ(Reported(), (States{2, 4, 3, 1}));
  EXPECT_LE(nowMs(), 31'001u);
}

TEST_F(ServiceMainTest, RegistersUnderItsNameForBothClasses) {
  StartServiceAndPass(31'000);
  const auto services = OpenObjects<platform::ServiceRegistration>();
  ASSERT_EQ(services.size(), 1u);
  EXPECT_EQ(services[0]->name, u"Vantrel");
  EXPECT_EQ(services[0]->context, nullptr);

  const GUID classes[] = {simulator::KeyboardInterfaceGuid, simulator::DfuModeInterfaceGuid};
  const PCM_NOTIFY_CALLBACK callbacks[] = {OnKeyboardInterfaceEvent, OnDfuInterfaceEvent};
  const auto notifications = OpenObjects<platform::NotificationRegistration>();
  ASSERT_EQ(notifications.size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    u8 filter[416] = {0xA0, 0x01};  // its own size, and nothing but the class behind it
    std::memcpy(filter + 16, &classes[i], sizeof(GUID));
    EXPECT_EQ(std::memcmp(&notifications[i]->filter, filter, sizeof(filter)), 0) << i;
    EXPECT_EQ(notifications[i]->callback, callbacks[i]) << i;
    EXPECT_EQ(notifications[i]->context, nullptr) << i;
  }
}

TEST_F(ServiceMainTest, GoesOnWhateverFails) {
  const StdoutCapture output;
  FailCall(Call::CreateMutexW, ERROR_NOT_ENOUGH_MEMORY);
  FailCall(Call::SetServiceStatus, ERROR_INVALID_DATA);
  FailCall(Call::CreateThread, ERROR_NOT_ENOUGH_MEMORY);
  FailCall(Call::CM_Register_Notification, CR_FAILURE);
  FailCall(Call::CM_Register_Notification, CR_CALL_NOT_IMPLEMENTED, 2);
  StartServiceAndPass(29'999);
  LookFromHere();
  PassTime(10'000);

  EXPECT_EQ(Reported(), States{4});
  EXPECT_EQ(Lines(), (Texts{"CM_Register_Notification failed, error 19\n",
                            "CM_Register_Notification failed, error 52\n"}));
  EXPECT_EQ(output.Text(), "");
}

TEST_F(ServiceMainTest, DecidesWhilePaused) {
  InstallHollowPackage();
  LogOnUser();
  StartServiceAndPass(31'000);
  machine.services.SendControl(SERVICE_CONTROL_PAUSE);
  PassTime(1'000);
  PlugIn();
  PassTime(5'000);
  EXPECT_EQ(Words(), Texts{"START"});
}

}  // namespace
