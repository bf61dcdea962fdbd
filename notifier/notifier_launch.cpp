#include "notifier/notifier_launch.h"

#include <userenv.h>

#include <cstddef>
#include <cstring>

#include "common/debug_output.h"
#include "common/handles.h"
#include "common/package_values.h"
#include "common/wide_string.h"
#include "notifier/user_session.h"

namespace {

constexpr DWORD UserTokenAccess = TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY | TOKEN_DUPLICATE |
                                  TOKEN_ASSIGN_PRIMARY | TOKEN_ADJUST_SESSIONID | TOKEN_READ |
                                  TOKEN_WRITE;
static_assert(UserTokenAccess == 0x201EB);

constexpr DWORD LaunchFlags = NORMAL_PRIORITY_CLASS | CREATE_NEW_CONSOLE;
static_assert(LaunchFlags == 0x30);

constexpr char NotifierFile[] = "\\Pellory.exe";

// Bytes of the narrow path, and as many characters at most once it is UTF-16. Both arrays' sizes
// count a terminating zero of their own, so one is to spare.
constexpr std::size_t NotifierPathCapacity =
    sizeof(FileRepositoryPath) + sizeof(WIN32_FIND_DATAA::cFileName) + sizeof(NotifierFile);

struct EnvironmentBlockKind {
  using Type = LPVOID;
  static Type Empty() { return nullptr; }
  static void CloseNow(Type block) { DestroyEnvironmentBlock(block); }
};

// What the steps of one launch leave behind; an empty member stands for a step that failed, and the
// launch goes on all the same. Closed from the last member to the first.
struct LaunchHandles {
  HandleGuard<EnvironmentBlockKind> environment;
  KernelHandle userToken;
  KernelHandle notifierToken;
  KernelHandle explorer;
};

void OpenUserToken(LaunchHandles& handles) {
  if (!OpenProcessToken(handles.explorer.get(), UserTokenAccess, handles.userToken.Receive())) {
    const DWORD error = GetLastError();
    WriteDebugFormat(TEXT("Process token open error: %d\n"), error);
  }
}

TOKEN_PRIVILEGES DebugPrivilege() {
  LUID privilege = {};
  if (!LookupPrivilegeValueW(nullptr, TEXT("SeDebugPrivilege"), &privilege)) {
    const DWORD error = GetLastError();
    WriteDebugFormat(TEXT("LookupPrivilegeValue error: %u\n"), error);
  }
  TOKEN_PRIVILEGES privileges = {};
  privileges.PrivilegeCount = 1;
  privileges.Privileges[0].Luid = privilege;
  privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
  return privileges;
}

void DuplicateUserToken(LaunchHandles& handles) {
  if (!DuplicateTokenEx(handles.userToken.get(), MAXIMUM_ALLOWED, nullptr, SecurityIdentification,
                        TokenPrimary, handles.notifierToken.Receive())) {
    const DWORD error = GetLastError();
    WriteDebugFormat(TEXT("DuplicateTokenEx error: %u\n"), error);
  }
}

void EnablePrivileges(HANDLE token, TOKEN_PRIVILEGES& privileges) {
  const BOOL adjusted =
      AdjustTokenPrivileges(token, FALSE, &privileges, sizeof(privileges), nullptr, nullptr);
  const DWORD error = GetLastError();
  if (!adjusted) {
    WriteDebugFormat(TEXT("Process token open error: %u\n"), error);
  }
  // The call succeeds even when the token does not hold the privilege, as a standard user's.
  if (error == ERROR_NOT_ALL_ASSIGNED) {
    WriteDebugFormat(TEXT("Process token open error: %u\n"), error);
  }
}

void MakeEnvironment(LaunchHandles& handles) {
  LPVOID block = nullptr;
  if (CreateEnvironmentBlock(&block, handles.notifierToken.get(), TRUE)) {
    handles.environment.Reset(block);
  }
}

// Leaves an empty path, which starts nothing, when the folder's name cannot be converted.
void BuildNotifierPath(WCHAR (&path)[NotifierPathCapacity]) {
  WIN32_FIND_DATAA folder = packageFolder;
  folder.cFileName[sizeof(folder.cFileName) - 1] = 0;
  const std::size_t folderBytes = std::strlen(folder.cFileName);

  char narrowPath[NotifierPathCapacity];
  char* at = narrowPath;
  std::memcpy(at, FileRepositoryPath, FileRepositoryPathBytes);
  at += FileRepositoryPathBytes;
  std::memcpy(at, folder.cFileName, folderBytes);
  at += folderBytes;
  std::memcpy(at, NotifierFile, sizeof(NotifierFile));
  WidenAnsi(narrowPath, path, NotifierPathCapacity);
}

// A null token stands for the caller's own account: the notifier would run with the service's full
// rights. When there is no token of the user's, one that the call refuses takes its place.
HANDLE TokenOfUser(const LaunchHandles& handles) {
  return handles.notifierToken.valid() ? handles.notifierToken.get() : INVALID_HANDLE_VALUE;
}

void StartNotifier(const LaunchHandles& handles, const NotifierMessage& message) {
  WCHAR path[NotifierPathCapacity];
  BuildNotifierPath(path);
  WriteDebugText(path);
  WriteDebugText(message.text());

  // CreateProcessAsUserW may write into its command line, and lpDesktop is not const either.
  NotifierMessage commandLine = message;
  WCHAR desktop[] = TEXT("winsta0\\default");
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  startup.lpDesktop = desktop;

  const DWORD flags =
      handles.environment.valid() ? LaunchFlags | CREATE_UNICODE_ENVIRONMENT : LaunchFlags;
  PROCESS_INFORMATION notifier = {};
  if (!CreateProcessAsUserW(TokenOfUser(handles), path, commandLine.text(), nullptr, nullptr, FALSE,
                            flags, handles.environment.get(), nullptr, &startup, &notifier)) {
    const DWORD error = GetLastError();
    WriteDebugFormat(TEXT("Process token open error: %u\n"), error);
    return;
  }
  // Nobody waits for it.
  const KernelHandle process(notifier.hProcess);
  const KernelHandle thread(notifier.hThread);
}

}  // namespace

i32 LaunchNotifier(const NotifierMessage& message) {
  DWORD explorerId = 0;
  if (FindActiveUserSession(&explorerId) == 0) {
    WriteDebugText(TEXT("Getprocessid fail\n"));
    return 0;
  }

  LaunchHandles handles;
  handles.explorer.Reset(OpenProcess(MAXIMUM_ALLOWED, FALSE, explorerId));
  OpenUserToken(handles);
  TOKEN_PRIVILEGES privileges = DebugPrivilege();
  DuplicateUserToken(handles);
  EnablePrivileges(handles.notifierToken.get(), privileges);
  MakeEnvironment(handles);
  StartNotifier(handles, message);
  return 0;
}
