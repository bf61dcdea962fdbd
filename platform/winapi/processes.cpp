// Processes, their tokens and environments, and starting a program as a user.
#include <psapi.h>
#include <userenv.h>
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/machine/text.h"
#include "platform/winapi/refusal.h"

using platform::Call;
using platform::EnvironmentObject;
using platform::FailsAtEntry;
using platform::HandleKind;
using platform::LaunchedProcess;
using platform::OpenProcessObject;
using platform::Process;
using platform::Refuse;
using platform::TheMachine;
using platform::TokenObject;

namespace {

constexpr LUID DebugPrivilege = {20, 0};

// All that a launcher may want to do with a user's token.
constexpr DWORD UserTokenAccess = 0x201EB;

BOOL Fail(DWORD error) {
  SetLastError(error);
  return FALSE;
}

std::shared_ptr<OpenProcessObject> GetProcess(HANDLE handle, Call call) {
  auto process =
      TheMachine().handles.Get<OpenProcessObject>(handle, HandleKind::Process, NameOf(call));
  if (process == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
  }
  return process;
}

// The token behind a handle, when the handle grants the access; null with the last error otherwise.
std::shared_ptr<TokenObject> GetToken(HANDLE handle, DWORD access, Call call) {
  auto token = TheMachine().handles.Get<TokenObject>(handle, HandleKind::Token, NameOf(call));
  if (token == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  if ((token->access & MAXIMUM_ALLOWED) == 0 && (token->access & access) != access) {
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
  }
  return token;
}

HMODULE FirstModuleOf(const Process& process) {
  return reinterpret_cast<HMODULE>(0x7FF600000000 + std::uintptr_t{process.id} * 0x10000);
}

bool IsPlain(const STARTUPINFOW& info) {
  STARTUPINFOW plain = {};
  plain.cb = sizeof(plain);
  plain.lpDesktop = info.lpDesktop;
  return std::memcmp(&plain, &info, sizeof(plain)) == 0;
}

// Windows writes into the command line while it looks at it, so a literal faults here, too.
void TouchCommandLine(LPWSTR commandLine) {
  volatile WCHAR* const first = commandLine;
  *first = *first;
}

}  // namespace

BOOL WINAPI K32EnumProcesses(DWORD* lpidProcess, DWORD cb, LPDWORD lpcbNeeded) {
  if (FailsAtEntry(Call::K32EnumProcesses)) {
    return FALSE;
  }
  const std::vector<DWORD> ids = TheMachine().processes.Ids();
  const std::size_t count = std::min(ids.size(), cb / sizeof(DWORD));
  std::copy_n(ids.begin(), count, lpidProcess);
  *lpcbNeeded = static_cast<DWORD>(count * sizeof(DWORD));
  return TRUE;
}

HANDLE WINAPI OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwProcessId) {
  if (FailsAtEntry(Call::OpenProcess)) {
    return nullptr;
  }
  if ((dwDesiredAccess != PROCESS_ALL_ACCESS && dwDesiredAccess != MAXIMUM_ALLOWED) ||
      bInheritHandle) {
    Refuse(Call::OpenProcess, "inheritance and less than full access are");
    return nullptr;
  }
  const auto process = TheMachine().processes.Find(dwProcessId);
  if (dwProcessId == 0 || !process) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  if (!process->accessible) {
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
  }
  return TheMachine().handles.Open(HandleKind::Process,
                                   std::make_shared<OpenProcessObject>(*process, dwDesiredAccess));
}

// Every process is shown with two modules, so that a caller with room for one sees the need exceed
// its buffer.
BOOL WINAPI K32EnumProcessModules(HANDLE hProcess, HMODULE* lphModule, DWORD cb,
                                  LPDWORD lpcbNeeded) {
  if (FailsAtEntry(Call::K32EnumProcessModules)) {
    return FALSE;
  }
  const auto open = GetProcess(hProcess, Call::K32EnumProcessModules);
  if (open == nullptr) {
    return FALSE;
  }
  if (open->access != PROCESS_ALL_ACCESS) {
    Refuse(Call::K32EnumProcessModules, "less than full access to the process is");
    return FALSE;
  }
  constexpr DWORD Modules = 2;
  for (DWORD i = 0; i < std::min<std::size_t>(Modules, cb / sizeof(HMODULE)); ++i) {
    lphModule[i] = FirstModuleOf(open->process) + std::size_t{0x1000} * i;
  }
  *lpcbNeeded = Modules * sizeof(HMODULE);
  return TRUE;
}

DWORD WINAPI K32GetModuleBaseNameW(HANDLE hProcess, HMODULE hModule, LPWSTR lpBaseName,
                                   DWORD nSize) {
  if (FailsAtEntry(Call::K32GetModuleBaseNameW)) {
    return 0;
  }
  const auto open = GetProcess(hProcess, Call::K32GetModuleBaseNameW);
  if (open == nullptr) {
    return 0;
  }
  if (hModule != nullptr && hModule != FirstModuleOf(open->process)) {
    Refuse(Call::K32GetModuleBaseNameW, "any but the first module is");
    return 0;
  }
  // A name that does not fit comes back cut and unterminated.
  const std::u16string& name = open->process.moduleName;
  std::copy_n(name.c_str(), std::min<std::size_t>(name.size() + 1, nSize), lpBaseName);
  return static_cast<DWORD>(std::min<std::size_t>(name.size(), nSize));
}

BOOL WINAPI ProcessIdToSessionId(DWORD dwProcessId, DWORD* pSessionId) {
  if (FailsAtEntry(Call::ProcessIdToSessionId)) {
    return FALSE;
  }
  const auto process = TheMachine().processes.Find(dwProcessId);
  if (!process) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  *pSessionId = process->sessionId;
  return TRUE;
}

BOOL WINAPI OpenProcessToken(HANDLE ProcessHandle, DWORD DesiredAccess, PHANDLE TokenHandle) {
  if (FailsAtEntry(Call::OpenProcessToken)) {
    return FALSE;
  }
  const auto open = GetProcess(ProcessHandle, Call::OpenProcessToken);
  if (open == nullptr) {
    return FALSE;
  }
  if (open->access != MAXIMUM_ALLOWED || DesiredAccess != UserTokenAccess) {
    Refuse(Call::OpenProcessToken, "another access to the process or its token is");
    return FALSE;
  }
  auto token = std::make_shared<TokenObject>();
  token->sessionId = open->process.sessionId;
  token->access = DesiredAccess;
  token->holdsDebugPrivilege = open->process.holdsDebugPrivilege;
  *TokenHandle = TheMachine().handles.Open(HandleKind::Token, token);
  return TRUE;
}

BOOL WINAPI LookupPrivilegeValueW(LPCWSTR lpSystemName, LPCWSTR lpName, PLUID lpLuid) {
  if (FailsAtEntry(Call::LookupPrivilegeValueW)) {
    return FALSE;
  }
  if (lpSystemName != nullptr || !platform::EqualsIgnoringCase(lpName, SE_DEBUG_NAME)) {
    Refuse(Call::LookupPrivilegeValueW, "another system or privilege is");
    return FALSE;
  }
  *lpLuid = DebugPrivilege;
  return TRUE;
}

BOOL WINAPI DuplicateTokenEx(HANDLE hExistingToken, DWORD dwDesiredAccess,
                             LPSECURITY_ATTRIBUTES lpTokenAttributes,
                             SECURITY_IMPERSONATION_LEVEL ImpersonationLevel, TOKEN_TYPE TokenType,
                             PHANDLE phNewToken) {
  if (FailsAtEntry(Call::DuplicateTokenEx)) {
    return FALSE;
  }
  if (lpTokenAttributes != nullptr || ImpersonationLevel != SecurityIdentification ||
      TokenType != TokenPrimary || dwDesiredAccess != MAXIMUM_ALLOWED) {
    Refuse(Call::DuplicateTokenEx, "another kind of token or access is");
    return FALSE;
  }
  const auto token = GetToken(hExistingToken, TOKEN_DUPLICATE, Call::DuplicateTokenEx);
  if (token == nullptr) {
    return FALSE;
  }
  auto duplicate = std::make_shared<TokenObject>(*token);
  duplicate->access = dwDesiredAccess;
  *phNewToken = TheMachine().handles.Open(HandleKind::Token, duplicate);
  return TRUE;
}

// Succeeds, too, when the token does not hold the privilege: only the last error tells.
BOOL WINAPI AdjustTokenPrivileges(HANDLE TokenHandle, BOOL DisableAllPrivileges,
                                  PTOKEN_PRIVILEGES NewState, DWORD BufferLength,
                                  PTOKEN_PRIVILEGES PreviousState, PDWORD ReturnLength) {
  if (FailsAtEntry(Call::AdjustTokenPrivileges)) {
    return FALSE;
  }
  if (DisableAllPrivileges || PreviousState != nullptr || ReturnLength != nullptr ||
      BufferLength != sizeof(TOKEN_PRIVILEGES) || NewState->PrivilegeCount != 1 ||
      NewState->Privileges[0].Attributes != SE_PRIVILEGE_ENABLED) {
    Refuse(Call::AdjustTokenPrivileges, "anything but enabling one privilege is");
    return FALSE;
  }
  const auto token = GetToken(TokenHandle, TOKEN_ADJUST_PRIVILEGES, Call::AdjustTokenPrivileges);
  if (token == nullptr) {
    return FALSE;
  }
  const LUID& wanted = NewState->Privileges[0].Luid;
  const bool isDebug =
      wanted.LowPart == DebugPrivilege.LowPart && wanted.HighPart == DebugPrivilege.HighPart;
  const bool held = isDebug && token->holdsDebugPrivilege;
  token->debugPrivilegeEnabled = held;
  SetLastError(held ? ERROR_SUCCESS : ERROR_NOT_ALL_ASSIGNED);
  return TRUE;
}

// The block is a name for itself: the service only hands it on. A null token stands for the
// system's own environment.
BOOL WINAPI CreateEnvironmentBlock(LPVOID* lpEnvironment, HANDLE hToken, BOOL bInherit) {
  if (FailsAtEntry(Call::CreateEnvironmentBlock)) {
    return FALSE;
  }
  if (!bInherit) {
    Refuse(Call::CreateEnvironmentBlock, "a block without the caller's environment is");
    return FALSE;
  }
  if (hToken != nullptr &&
      GetToken(hToken, TOKEN_QUERY | TOKEN_DUPLICATE, Call::CreateEnvironmentBlock) == nullptr) {
    return FALSE;
  }
  *lpEnvironment = TheMachine().handles.Open(HandleKind::EnvironmentBlock,
                                             std::make_shared<EnvironmentObject>());
  return TRUE;
}

BOOL WINAPI DestroyEnvironmentBlock(LPVOID lpEnvironment) {
  if (FailsAtEntry(Call::DestroyEnvironmentBlock)) {
    return FALSE;
  }
  const bool destroyed = TheMachine().handles.Close(lpEnvironment, HandleKind::EnvironmentBlock,
                                                    "DestroyEnvironmentBlock");
  return destroyed ? TRUE : Fail(ERROR_INVALID_PARAMETER);
}

BOOL WINAPI CreateProcessAsUserW(HANDLE hToken, LPCWSTR lpApplicationName, LPWSTR lpCommandLine,
                                 LPSECURITY_ATTRIBUTES lpProcessAttributes,
                                 LPSECURITY_ATTRIBUTES lpThreadAttributes, BOOL bInheritHandles,
                                 DWORD dwCreationFlags, LPVOID lpEnvironment,
                                 LPCWSTR lpCurrentDirectory, LPSTARTUPINFOW lpStartupInfo,
                                 LPPROCESS_INFORMATION lpProcessInformation) {
  constexpr Call ThisCall = Call::CreateProcessAsUserW;
  if (FailsAtEntry(ThisCall)) {
    return FALSE;
  }
  const DWORD environmentFlag = lpEnvironment == nullptr ? 0 : CREATE_UNICODE_ENVIRONMENT;
  if (lpApplicationName == nullptr || lpCommandLine == nullptr || lpProcessAttributes != nullptr ||
      lpThreadAttributes != nullptr || bInheritHandles || lpCurrentDirectory != nullptr ||
      lpStartupInfo->lpDesktop == nullptr || !IsPlain(*lpStartupInfo) ||
      dwCreationFlags != (NORMAL_PRIORITY_CLASS | CREATE_NEW_CONSOLE | environmentFlag)) {
    Refuse(ThisCall, "this way to start a program is");
    return FALSE;
  }
  TouchCommandLine(lpCommandLine);
  if (hToken == nullptr) {
    Refuse(ThisCall, "a null token, which stands for the caller's own account, is");
    return FALSE;
  }
  const auto token =
      GetToken(hToken, TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_ASSIGN_PRIMARY, ThisCall);
  if (token == nullptr) {
    return FALSE;
  }
  if (lpEnvironment != nullptr &&
      TheMachine().handles.Find(lpEnvironment, HandleKind::EnvironmentBlock, NameOf(ThisCall)) ==
          nullptr) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  const DWORD error = TheMachine().drive.CheckFile(platform::Utf8FromWide(lpApplicationName));
  if (error != ERROR_SUCCESS) {
    return Fail(error);
  }

  LaunchedProcess launch;
  launch.imagePath = lpApplicationName;
  launch.commandLine = lpCommandLine;
  launch.desktop = lpStartupInfo->lpDesktop;
  launch.creationFlags = dwCreationFlags;
  launch.sessionId = token->sessionId;
  launch.environmentGiven = lpEnvironment != nullptr;
  launch.debugPrivilegeEnabled = token->debugPrivilegeEnabled;
  launch.timeMs = TheMachine().scheduler.NowMs();
  const DWORD id = TheMachine().processes.Launch(launch);

  Process started;
  started.id = id;
  started.sessionId = token->sessionId;
  const auto open = [&] {
    return TheMachine().handles.Open(
        HandleKind::Process, std::make_shared<OpenProcessObject>(started, PROCESS_ALL_ACCESS));
  };
  *lpProcessInformation = {open(), open(), id, id + 1};
  return TRUE;
}
