// run_service VANTREL.EXE: installs the service in Wine's service manager, starts it, and takes it
// through its life while the keyboard beside it is updated twice. What is seen from outside goes to
// the log; tests/windows/run-under-wine judges it. Each wait has a limit that only a fault reaches.
#include <windows.h>
#include <winternl.h>

#include <string>
#include <vector>

#include "tests/windows/run_log.h"

namespace {

constexpr DWORD WaitLimitMs = 240'000;
constexpr DWORD LookMs = 50;
constexpr auto HandleInformation = static_cast<SYSTEM_INFORMATION_CLASS>(16);

// Calls until it returns true. Logs a fault and ends the run at the limit.
template <class Condition>
void WaitFor(const std::string& what, Condition condition) {
  const ULONGLONG end = GetTickCount64() + WaitLimitMs;
  while (!condition()) {
    if (GetTickCount64() > end) {
      Log("FAULT: waited in vain: " + what);
      ExitProcess(1);
    }
    Sleep(LookMs);
  }
}

SERVICE_STATUS_PROCESS StatusOf(SC_HANDLE service) {
  SERVICE_STATUS_PROCESS status = {};
  DWORD needed = 0;
  QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                       sizeof(status), &needed);
  return status;
}

void WaitForState(SC_HANDLE service, DWORD state) {
  WaitFor("state " + std::to_string(state),
          [&] { return StatusOf(service).dwCurrentState == state; });
  Log("service is in state " + std::to_string(state));
}

void WaitForLog(const std::string& text, unsigned int times) {
  WaitFor(text, [&] { return CountInLog(text) >= times; });
}

void Control(SC_HANDLE service, DWORD control) {
  SERVICE_STATUS status = {};
  Log("run sends control " + std::to_string(control));
  // Told to stop, the process may be gone before Wine has its answer. The state tells.
  if (!ControlService(service, control, &status) && control != SERVICE_CONTROL_STOP) {
    Log("FAULT: the control is refused with error " + std::to_string(GetLastError()));
  }
}

// How many handles of all kinds a process has. The system's record begins with the count of all;
// each entry of 24 bytes begins with its process.
unsigned int HandlesOf(DWORD process) {
  std::vector<BYTE> table(1 << 20);
  ULONG bytes = 0;
  if (NtQuerySystemInformation(HandleInformation, table.data(), static_cast<ULONG>(table.size()),
                               &bytes) != 0) {
    return 0;
  }
  unsigned int count = 0;
  const ULONG entries = *reinterpret_cast<const ULONG*>(table.data());
  for (ULONG i = 0; i < entries; ++i) {
    count += *reinterpret_cast<const ULONG*>(&table[8 + i * 24]) == process ? 1 : 0;
  }
  return count;
}

// Opens a device file for itself alone, which succeeds only when nobody else has it open.
void CheckClosed(const std::string& name) {
  const HANDLE file = CreateFileA((RunFolder + name).c_str(), GENERIC_READ, 0, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  Log((file != INVALID_HANDLE_VALUE ? "closed: " : "FAULT: left open: ") + name);
  CloseHandle(file);
}

// The session's end is told by the tick after the keyboard has left; its last handles are closed
// with the line.
void WaitForUpdate(unsigned int times) {
  WaitForLog("says |Successfully left DFU mode!", times);
  WaitForLog("flash is as the package wants it", times);
  WaitForLog("keyboard runs firmware", times);
  WaitForLog("user is told COMPLETE", times);
}

void Live(SC_HANDLE service) {
  WaitForState(service, SERVICE_START_PENDING);
  const DWORD process = StatusOf(service).dwProcessId;
  const HANDLE handle = OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE, process);
  WaitForUpdate(1);
  WaitForState(service, SERVICE_RUNNING);

  // The second update goes the way of an arrival, from the first look to the end, while the service
  // is paused.
  Control(service, SERVICE_CONTROL_PAUSE);
  WaitForState(service, SERVICE_PAUSED);
  const unsigned int handlesBefore = HandlesOf(process);
  CloseHandle(CreateFileA((std::string(RunFolder) + "replug").c_str(), GENERIC_WRITE, 0, nullptr,
                          CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  WaitForUpdate(2);
  WaitForLog("keyboard tells its version 1.2.2.1", 1);
  unsigned int handles = 0;
  WaitFor("no more handles than before", [&] {
    handles = HandlesOf(process);
    return handles <= handlesBefore;
  });
  Log("handles before and after: " + std::to_string(handlesBefore) + " " + std::to_string(handles));
  Control(service, SERVICE_CONTROL_CONTINUE);
  WaitForState(service, SERVICE_RUNNING);
  for (const char* const name : {"collection0", "collection1", "collection2", "dfu"}) {
    CheckClosed(name);
  }

  Control(service, SERVICE_CONTROL_STOP);
  WaitForState(service, SERVICE_STOPPED);
  WaitFor("the end of the process",
          [&] { return WaitForSingleObject(handle, 0) == WAIT_OBJECT_0; });
  DWORD exitCode = 0;
  GetExitCodeProcess(handle, &exitCode);
  CloseHandle(handle);
  Log("process ends with code " + std::to_string(exitCode));
}

// The user's session is known by a process of that name.
bool LogUserOn() {
  STARTUPINFOA startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION explorer = {};
  if (!CreateProcessA((std::string(RunFolder) + "explorer.exe").c_str(), nullptr, nullptr, nullptr,
                      FALSE, 0, nullptr, nullptr, &startup, &explorer)) {
    return false;
  }
  CloseHandle(explorer.hProcess);
  CloseHandle(explorer.hThread);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    return 2;
  }
  if (!LogUserOn()) {
    Log("FAULT: explorer.exe does not start");
    return 1;
  }
  const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
  const SC_HANDLE service =
      CreateServiceA(manager, "Vantrel", "Vantrel", SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                     SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, argv[1], nullptr, nullptr, nullptr,
                     nullptr, nullptr);
  Log(service != nullptr ? "service is registered" : "FAULT: the service cannot be registered");
  if (service == nullptr) {
    return 1;
  }
  Log("run starts the service");
  // The manager is locked while it starts the services of its own.
  DWORD error = 0;
  WaitFor("the service's start", [&] {
    error = StartServiceW(service, 0, nullptr) ? ERROR_SUCCESS : GetLastError();
    return error != ERROR_SERVICE_DATABASE_LOCKED;
  });
  if (error != ERROR_SUCCESS) {
    Log("FAULT: the service does not start, error " + std::to_string(error));
    return 1;
  }
  Live(service);
  CloseServiceHandle(service);
  CloseServiceHandle(manager);
  return 0;
}
