// Processes, their tokens and environments, and starting a program as a user.
#include <psapi.h>
#include <userenv.h>
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/machine/text.h"
#include "platform/winapi/platform_call.h"

using platform::Access;
using platform::AllTokenRights;
using platform::Call;
using platform::EnvironmentObject;
using platform::LastErrorCall;
using platform::LaunchedProcess;
using platform::OpenProcessObject;
using platform::Process;
using platform::Scheduler;
using platform::TheMachine;
using platform::TokenObject;

namespace {

constexpr LUID DebugPrivilege = {20, 0};

// Rights to a process that the service never asks for one by one.
constexpr DWORD ReadMemory = 0x0010;
constexpr DWORD QueryInformation = 0x0400;
constexpr DWORD QueryLimitedInformation = 0x1000;

// The object behind a handle that grants the access; null, with the last error, otherwise.
template <class T>
std::shared_ptr<T> GetAllowed(const platform::PlatformCall& call, HANDLE handle, DWORD rights) {
  auto object = call.Get<T>(handle);
  if (object == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
  } else if (!object->access.Allows(rights)) {
    SetLastError(ERROR_ACCESS_DENIED);
    object = nullptr;
  }
  return object;
}

HMODULE FirstModuleOf(const Process& process) {
  return reinterpret_cast<HMODULE>(0x7FF600000000 + std::uintptr_t{process.id} * 0x10000);
}

// All but the desktop would change how the program looks or whom it talks to.
bool IsPlain(const STARTUPINFOW& info) {
  STARTUPINFOW plain = {};
  plain.cb = sizeof(plain);
  plain.lpDesktop = info.lpDesktop;
  return info.lpDesktop != nullptr && std::memcmp(&plain, &info, sizeof(plain)) == 0;
}

// An environment without CREATE_UNICODE_ENVIRONMENT would be taken for ANSI text.
bool AreModelledFlags(DWORD flags, bool environmentGiven) {
  constexpr DWORD Modelled =
      NORMAL_PRIORITY_CLASS | CREATE_NEW_CONSOLE | CREATE_UNICODE_ENVIRONMENT;
  return (flags & ~Modelled) == 0 &&
         (!environmentGiven || (flags & CREATE_UNICODE_ENVIRONMENT) != 0);
}

// Windows writes into the command line while it looks at it, so a literal faults here, too.
void TouchCommandLine(LPWSTR commandLine) {
  volatile WCHAR* const first = commandLine;
  *first = *first;
}

// Starts the program for the token's user. Both handles come with full access; that of the thread
// is a process handle, too, since nobody does more than close it.
PROCESS_INFORMATION Launch(LaunchedProcess launch, const TokenObject& token) {
  launch.sessionId = token.sessionId;
  launch.debugPrivilegeEnabled = token.debugPrivilegeEnabled;
  launch.timeMs = TheMachine().scheduler.NowMs();
  launch.threadId = Scheduler::Current()->id();
  const DWORD id = TheMachine().processes.Launch(launch);

  const Process started = {.id = id, .moduleName = {}, .sessionId = token.sessionId};
  const auto open = [&] {
    return TheMachine().handles.Open(
        std::make_shared<OpenProcessObject>(started, PROCESS_ALL_ACCESS));
  };
  return {open(), open(), id, id + 1};
}

}  // namespace

// Says nothing of processes that found no room: a caller learns of them only when the list is full.
BOOL WINAPI K32EnumProcesses(DWORD* lpidProcess, DWORD cb, LPDWORD lpcbNeeded) {
  const LastErrorCall<BOOL> call(Call::K32EnumProcesses);
  call.Note(lpidProcess, cb, lpcbNeeded);
  if (call.fails()) {
    return call.Fail();
  }
  const std::vector<DWORD> ids = TheMachine().processes.Ids();
  const std::size_t count = std::min(ids.size(), cb / sizeof(DWORD));
  std::copy_n(ids.begin(), count, lpidProcess);
  *lpcbNeeded = static_cast<DWORD>(count * sizeof(DWORD));
  return TRUE;
}

// Process 0 is the idle process, which Windows treats as a wrong parameter.
HANDLE WINAPI OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle, DWORD dwProcessId) {
  const LastErrorCall<HANDLE> call(Call::OpenProcess);
  call.Note(dwDesiredAccess, bInheritHandle, dwProcessId);
  if (call.fails()) {
    return call.Fail();
  }
  if (bInheritHandle || !Access::IsModelled(dwDesiredAccess, PROCESS_ALL_ACCESS)) {
    return call.Refuse("inheritance or this access is");
  }
  const auto process = TheMachine().processes.Find(dwProcessId);
  if (dwProcessId == 0 || !process) {
    return call.Fail(ERROR_INVALID_PARAMETER);
  }
  if (!process->accessible) {
    return call.Fail(ERROR_ACCESS_DENIED);
  }
  return TheMachine().handles.Open(std::make_shared<OpenProcessObject>(*process, dwDesiredAccess));
}

// Every process is shown with two modules, so that a caller with room for one sees the need exceed
// its buffer.
BOOL WINAPI K32EnumProcessModules(HANDLE hProcess, HMODULE* lphModule, DWORD cb,
                                  LPDWORD lpcbNeeded) {
  const LastErrorCall<BOOL> call(Call::K32EnumProcessModules);
  call.Note(hProcess, lphModule, cb, lpcbNeeded);
  if (call.fails()) {
    return call.Fail();
  }
  const auto open = GetAllowed<OpenProcessObject>(call, hProcess, QueryInformation | ReadMemory);
  if (open == nullptr) {
    return call.Fail(GetLastError());
  }
  if (cb < sizeof(HMODULE)) {
    return call.Refuse("a list without room for one module is");
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
  const LastErrorCall<DWORD> call(Call::K32GetModuleBaseNameW);
  call.Note(hProcess, hModule, lpBaseName, nSize);
  if (call.fails()) {
    return call.Fail();
  }
  const auto open = GetAllowed<OpenProcessObject>(call, hProcess, QueryInformation | ReadMemory);
  if (open == nullptr) {
    return call.Fail(GetLastError());
  }
  if (hModule != nullptr && hModule != FirstModuleOf(open->process)) {
    return call.Refuse("any but the first module is");
  }
  // A name that does not fit comes back cut and unterminated.
  const std::u16string& name = open->process.moduleName;
  std::copy_n(name.c_str(), std::min<std::size_t>(name.size() + 1, nSize), lpBaseName);
  return static_cast<DWORD>(std::min<std::size_t>(name.size(), nSize));
}

BOOL WINAPI ProcessIdToSessionId(DWORD dwProcessId, DWORD* pSessionId) {
  const LastErrorCall<BOOL> call(Call::ProcessIdToSessionId);
  call.Note(dwProcessId, pSessionId);
  if (call.fails()) {
    return call.Fail();
  }
  const auto process = TheMachine().processes.Find(dwProcessId);
  if (!process) {
    return call.Fail(ERROR_INVALID_PARAMETER);
  }
  *pSessionId = process->sessionId;
  return TRUE;
}

BOOL WINAPI OpenProcessToken(HANDLE ProcessHandle, DWORD DesiredAccess, PHANDLE TokenHandle) {
  const LastErrorCall<BOOL> call(Call::OpenProcessToken);
  call.Note(ProcessHandle, DesiredAccess, TokenHandle);
  if (call.fails()) {
    return call.Fail();
  }
  if (!Access::IsModelled(DesiredAccess, AllTokenRights)) {
    return call.Refuse("this access is");
  }
  const auto open = GetAllowed<OpenProcessObject>(call, ProcessHandle, QueryLimitedInformation);
  if (open == nullptr) {
    return call.Fail(GetLastError());
  }
  *TokenHandle =
      TheMachine().handles.Open(std::make_shared<TokenObject>(open->process, DesiredAccess));
  return TRUE;
}

BOOL WINAPI LookupPrivilegeValueW(LPCWSTR lpSystemName, LPCWSTR lpName, PLUID lpLuid) {
  const LastErrorCall<BOOL> call(Call::LookupPrivilegeValueW);
  call.Note(lpSystemName, lpName, lpLuid);
  if (call.fails()) {
    return call.Fail();
  }
  if (lpSystemName != nullptr || !platform::EqualsIgnoringCase(lpName, SE_DEBUG_NAME)) {
    return call.Refuse("another system or privilege is");
  }
  *lpLuid = DebugPrivilege;
  return TRUE;
}

BOOL WINAPI DuplicateTokenEx(HANDLE hExistingToken, DWORD dwDesiredAccess,
                             LPSECURITY_ATTRIBUTES lpTokenAttributes,
                             SECURITY_IMPERSONATION_LEVEL ImpersonationLevel, TOKEN_TYPE TokenType,
                             PHANDLE phNewToken) {
  const LastErrorCall<BOOL> call(Call::DuplicateTokenEx);
  call.Note(hExistingToken, dwDesiredAccess, lpTokenAttributes, ImpersonationLevel, TokenType,
            phNewToken);
  if (call.fails()) {
    return call.Fail();
  }
  if (lpTokenAttributes != nullptr || ImpersonationLevel != SecurityIdentification ||
      TokenType != TokenPrimary || dwDesiredAccess == 0 ||
      !Access::IsModelled(dwDesiredAccess, AllTokenRights)) {
    return call.Refuse("another kind of token or access is");
  }
  const auto token = GetAllowed<TokenObject>(call, hExistingToken, TOKEN_DUPLICATE);
  if (token == nullptr) {
    return call.Fail(GetLastError());
  }
  *phNewToken = TheMachine().handles.Open(std::make_shared<TokenObject>(*token, dwDesiredAccess));
  return TRUE;
}

// Succeeds, too, when the token does not hold the privilege: only the last error tells.
BOOL WINAPI AdjustTokenPrivileges(HANDLE TokenHandle, BOOL DisableAllPrivileges,
                                  PTOKEN_PRIVILEGES NewState, DWORD BufferLength,
                                  PTOKEN_PRIVILEGES PreviousState, PDWORD ReturnLength) {
  const LastErrorCall<BOOL> call(Call::AdjustTokenPrivileges);
  call.Note(TokenHandle, DisableAllPrivileges, NewState, BufferLength, PreviousState, ReturnLength);
  if (call.fails()) {
    return call.Fail();
  }
  if (DisableAllPrivileges || PreviousState != nullptr || ReturnLength != nullptr ||
      BufferLength != sizeof(TOKEN_PRIVILEGES) || NewState->PrivilegeCount != 1 ||
      NewState->Privileges[0].Attributes != SE_PRIVILEGE_ENABLED) {
    return call.Refuse("anything but enabling one privilege is");
  }
  const auto token = GetAllowed<TokenObject>(call, TokenHandle, TOKEN_ADJUST_PRIVILEGES);
  if (token == nullptr) {
    return call.Fail(GetLastError());
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
  const LastErrorCall<BOOL> call(Call::CreateEnvironmentBlock);
  call.Note(lpEnvironment, hToken, bInherit);
  if (call.fails()) {
    return call.Fail();
  }
  if (!bInherit) {
    return call.Refuse("a block without the caller's environment is");
  }
  if (hToken != nullptr &&
      GetAllowed<TokenObject>(call, hToken, TOKEN_QUERY | TOKEN_DUPLICATE) == nullptr) {
    return call.Fail(GetLastError());
  }
  *lpEnvironment = TheMachine().handles.Open(std::make_shared<EnvironmentObject>());
  return TRUE;
}

// The started program has a copy: the block may go as soon as the launch has returned.
BOOL WINAPI DestroyEnvironmentBlock(LPVOID lpEnvironment) {
  const LastErrorCall<BOOL> call(Call::DestroyEnvironmentBlock);
  call.Note(lpEnvironment);
  if (call.fails()) {
    return call.Fail();
  }
  return call.Close<EnvironmentObject>(lpEnvironment) ? TRUE : call.Fail(ERROR_INVALID_PARAMETER);
}

BOOL WINAPI CreateProcessAsUserW(HANDLE hToken, LPCWSTR lpApplicationName, LPWSTR lpCommandLine,
                                 LPSECURITY_ATTRIBUTES lpProcessAttributes,
                                 LPSECURITY_ATTRIBUTES lpThreadAttributes, BOOL bInheritHandles,
                                 DWORD dwCreationFlags, LPVOID lpEnvironment,
                                 LPCWSTR lpCurrentDirectory, LPSTARTUPINFOW lpStartupInfo,
                                 LPPROCESS_INFORMATION lpProcessInformation) {
  const LastErrorCall<BOOL> call(Call::CreateProcessAsUserW);
  call.Note(hToken, lpApplicationName, LPCWSTR{lpCommandLine}, bInheritHandles, dwCreationFlags,
            lpEnvironment, lpCurrentDirectory);
  if (call.fails()) {
    return call.Fail();
  }
  if (lpApplicationName == nullptr || lpCommandLine == nullptr || lpProcessAttributes != nullptr ||
      lpThreadAttributes != nullptr || bInheritHandles || lpCurrentDirectory != nullptr ||
      !IsPlain(*lpStartupInfo) || !AreModelledFlags(dwCreationFlags, lpEnvironment != nullptr)) {
    return call.Refuse("this way to start a program is");
  }
  TouchCommandLine(lpCommandLine);
  if (hToken == nullptr) {
    return call.Refuse("a null token, which stands for the caller's own account, is");
  }
  const auto token =
      GetAllowed<TokenObject>(call, hToken, TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_ASSIGN_PRIMARY);
  if (token == nullptr) {
    return call.Fail(GetLastError());
  }
  if (lpEnvironment != nullptr && call.Get<EnvironmentObject>(lpEnvironment) == nullptr) {
    return call.Fail(ERROR_INVALID_PARAMETER);
  }
  const DWORD error = TheMachine().drive.CheckFile(platform::Utf8FromWide(lpApplicationName));
  if (error != ERROR_SUCCESS) {
    return call.Fail(error);
  }

  *lpProcessInformation = Launch({.imagePath = lpApplicationName,
                                  .commandLine = lpCommandLine,
                                  .desktop = lpStartupInfo->lpDesktop,
                                  .creationFlags = dwCreationFlags,
                                  .environmentGiven = lpEnvironment != nullptr},
                                 *token);
  return TRUE;
}
