// The processes that run on the machine, in the order in which Windows lists them, and the programs
// that the service starts.
#pragma once

#include <windows.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/access.h"
#include "platform/machine/handle_table.h"
#include "platform/machine/records.h"

namespace platform {

// What Windows tells about one of them. Those that the service must not open, such as protected
// ones, are listed like the others.
struct Process {
  DWORD id = 0;
  std::u16string moduleName;  // of its first module, such as u"explorer.exe"
  DWORD sessionId = 0;
  bool accessible = true;            // false: OpenProcess is denied, as for a protected process
  bool holdsDebugPrivilege = false;  // whether its token has "SeDebugPrivilege" to enable
};

// One start of a program, as the service asked for it. A record and not a process: the notifier
// shows its word and ends, so what counts is how it was called, for whom and when.
struct LaunchedProcess {
  std::u16string imagePath;
  std::u16string commandLine;
  std::u16string desktop;
  DWORD creationFlags = 0;
  DWORD sessionId = 0;
  bool environmentGiven = false;
  bool debugPrivilegeEnabled = false;
  std::uint64_t timeMs = 0;
  std::uint32_t threadId = 0;  // of the thread that started it
};

// The object behind a process handle. It keeps its copy when the process has ended, as a handle
// keeps the process on Windows.
class OpenProcessObject : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::Process;

  OpenProcessObject(const Process& opened, DWORD desiredAccess)
      : process(opened), access(desiredAccess, PROCESS_ALL_ACCESS) {}

  const Process process;
  const Access access;
};

// Every right that a token has: TOKEN_ALL_ACCESS, which MAXIMUM_ALLOWED comes to here.
inline constexpr DWORD AllTokenRights = 0xF01FF;

// The object behind a token handle: who a program runs as. Of a user's token only the session and
// one privilege matter here.
class TokenObject : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::Token;

  TokenObject(const Process& process, DWORD desiredAccess)
      : sessionId(process.sessionId),
        holdsDebugPrivilege(process.holdsDebugPrivilege),
        access(desiredAccess, AllTokenRights) {}

  // A token of its own, with what the other one is changed to by now.
  TokenObject(const TokenObject& other, DWORD desiredAccess)
      : sessionId(other.sessionId),
        holdsDebugPrivilege(other.holdsDebugPrivilege),
        access(desiredAccess, AllTokenRights),
        debugPrivilegeEnabled(other.debugPrivilegeEnabled) {}

  const DWORD sessionId;
  const bool holdsDebugPrivilege;
  const Access access;

  // Holding a privilege is not using it: AdjustTokenPrivileges enables it in this one token. Tokens
  // that were copied from it before stay as they are.
  bool debugPrivilegeEnabled = false;
};

// The block of variables that a user's programs start with. It is counted like a handle because it
// has to be given back.
class EnvironmentObject : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::EnvironmentBlock;
};

// Any thread.
class ProcessTable {
 public:
  // --- For the script of a run ---

  // Adds a process at the end of the list. The order counts: a caller that takes the first program
  // with a name takes the one added first.
  void Add(const Process& process);

  // The process has ended. Handles to it stay open and go on telling what they were opened with. No
  // such id: nothing happens.
  void Remove(DWORD id);

  // Every program that was started, in the order of the starts.
  RecordLog<LaunchedProcess> launches;

  // --- For the calls of the layer ---

  // Nothing when no such process runs now: it may have ended since it was listed.
  std::optional<Process> Find(DWORD id) const;
  std::vector<DWORD> Ids() const;

  // The new process's id. Ids of started programs are multiples of four, as Windows' are, and far
  // above those of a script.
  DWORD Launch(const LaunchedProcess& launch);

 private:
  mutable std::mutex lock_;  // guards the rest
  std::vector<Process> processes_;
  DWORD nextLaunchedId_ = 20'000;
};

}  // namespace platform
