// The dispatcher of the service control manager, around a service of the test's own.

#include "tests/support/service_test.h"

namespace {

std::vector<std::string>& heard = *new std::vector<std::string>;
SERVICE_STATUS_HANDLE statusHandle = nullptr;

void Report(DWORD state) {
  SERVICE_STATUS status = {SERVICE_WIN32_OWN_PROCESS, state, 0xFF, 0, 0, 0, 0};
  EXPECT_TRUE(SetServiceStatus(statusHandle, &status));
}

DWORD WINAPI HandleControl(DWORD control, DWORD, LPVOID, LPVOID context) {
  heard.push_back("control " + std::to_string(control));
  EXPECT_EQ(context, &heard);
  if (control == SERVICE_CONTROL_STOP) {
    Report(SERVICE_STOPPED);
    Report(SERVICE_RUNNING);  // too late
  }
  return control;
}

void WINAPI ServiceEntry(DWORD count, LPWSTR* arguments) {
  heard.push_back(count == 1 && std::u16string(arguments[0]) == u"Name" ? "run" : "run wrongly");
  Sleep(10);
  statusHandle = RegisterServiceCtrlHandlerExW(u"Name", HandleControl, &heard);
  Sleep(10);
  heard.push_back("report");
  Report(SERVICE_RUNNING);
  Sleep(INFINITE);
}

class ServicesTest : public ServiceTest {};

TEST_F(ServicesTest, ControlsComeFromTheFirstReportToTheStop) {
  machine.services.SendControl(SERVICE_CONTROL_PAUSE);
  machine.StartServiceProcess([] {
    WCHAR name[] = u"Name";
    const SERVICE_TABLE_ENTRYW table[] = {{name, ServiceEntry}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 5 : 6;
  });
  PassTime(15);
  EXPECT_EQ(heard, Texts{"run"});
  PassTime(10);
  for (const DWORD control : {9, SERVICE_CONTROL_STOP, SERVICE_CONTROL_PAUSE}) {
    machine.services.SendControl(control);
  }
  PassTime(1);
  EXPECT_EQ(heard, (Texts{"run", "report", "control 2", "control 9", "control 1"}));
  EXPECT_EQ(machine.processExitCode(), 5);
}

}  // namespace
