// The processes that run on the machine, in the order in which Windows lists them, and the programs
// that the service starts.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/handle_table.h"

namespace platform {

struct Process {
  DWORD id = 0;
  std::u16string moduleName;  // of its first module, such as u"explorer.exe"
  DWORD sessionId = 0;
  bool accessible = true;            // false: OpenProcess is denied, as for a protected process
  bool holdsDebugPrivilege = false;  // whether its token has "SeDebugPrivilege" to enable
};

// One start of a program, as the service asked for it.
struct LaunchedProcess {
  std::u16string imagePath;
  std::u16string commandLine;
  std::u16string desktop;
  DWORD creationFlags = 0;
  DWORD sessionId = 0;
  bool environmentGiven = false;
  bool debugPrivilegeEnabled = false;
  std::uint64_t timeMs = 0;
};

class OpenProcessObject : public KernelObject {
 public:
  OpenProcessObject(const Process& opened, DWORD desiredAccess)
      : process(opened), access(desiredAccess) {}
  const Process process;
  const DWORD access;  // as it was asked for
};

class TokenObject : public KernelObject {
 public:
  DWORD sessionId = 0;
  DWORD access = 0;
  bool holdsDebugPrivilege = false;
  bool debugPrivilegeEnabled = false;
};

class EnvironmentObject : public KernelObject {};

class ProcessTable {
 public:
  // --- For the script of a run ---

  // Adds a process at the end of the list.
  void Add(const Process& process);
  void Remove(DWORD id);

  std::vector<LaunchedProcess> Launched() const;

  // Sees each start as it is made, on the starting thread; null for none.
  void ObserveLaunches(std::function<void(const LaunchedProcess&)> observer);

  // --- For the calls of the layer ---

  std::optional<Process> Find(DWORD id) const;
  std::vector<DWORD> Ids() const;

  // The new process's id.
  DWORD Launch(const LaunchedProcess& launch);

 private:
  mutable std::mutex lock_;
  std::vector<Process> processes_;
  std::vector<LaunchedProcess> launched_;
  std::function<void(const LaunchedProcess&)> observer_;
};

}  // namespace platform
