#include "notifier/user_session.h"

#include <psapi.h>

#include <cstring>

#include "common/debug_output.h"
#include "common/handles.h"
#include "common/wide_string.h"

namespace {

constexpr WCHAR LogonUiPath[] =
    TEXT("Software\\Microsoft\\Windows\\CurrentVersion\\Authentication\\LogonUI");
constexpr WCHAR SessionDataPath[] =
    TEXT("Software\\Microsoft\\Windows\\CurrentVersion\\Authentication\\LogonUI\\SessionData");

constexpr REGSAM KeyAccess = KEY_ALL_ACCESS | KEY_WOW64_64KEY;
static_assert(KeyAccess == 0xF013F);
static_assert(PROCESS_ALL_ACCESS == 0x1FFFFF);

constexpr DWORD SidBytes = 512;
constexpr std::size_t SidChars = SidBytes / sizeof(WCHAR);
constexpr DWORD SubkeyNameChars = 255;
constexpr DWORD ProcessNameChars = 260;
constexpr DWORD ProcessListBytes = 4096;
constexpr std::size_t MaxProcesses = ProcessListBytes / sizeof(DWORD);

LSTATUS OpenLogonKey(const WCHAR* path, RegistryKey& key) {
  return RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KeyAccess, key.Receive());
}

// Reads a SID in its text form. False when the value is missing, has another type, or is not a
// whole, terminated text with at least one character.
bool ReadSid(HKEY key, const WCHAR* subkeyName, const WCHAR* valueName, WCHAR (&sid)[SidChars]) {
  DWORD sidBytes = SidBytes;
  const LSTATUS outcome =
      RegGetValueW(key, subkeyName, valueName, RRF_RT_REG_SZ, nullptr, sid, &sidBytes);
  if (outcome != ERROR_SUCCESS || sidBytes < sizeof(WCHAR) || sidBytes > SidBytes ||
      sidBytes % sizeof(WCHAR) != 0) {
    return false;
  }
  return sid[sidBytes / sizeof(WCHAR) - 1] == 0 && sid[0] != 0;
}

bool IsUserLoggedOn(HKEY sessionDataKey, DWORD index, const WCHAR* selectedSid) {
  WCHAR subkeyName[SubkeyNameChars];
  DWORD nameChars = SubkeyNameChars;
  if (RegEnumKeyExW(sessionDataKey, index, subkeyName, &nameChars, nullptr, nullptr, nullptr,
                    nullptr) != ERROR_SUCCESS) {
    return false;
  }
  WCHAR loggedOnSid[SidChars];
  return ReadSid(sessionDataKey, subkeyName, TEXT("LoggedOnUserSID"), loggedOnSid) &&
         WideEquals(loggedOnSid, selectedSid);
}

// The list stays empty when the processes cannot be listed.
u32 ListProcesses(DWORD (&processIds)[MaxProcesses]) {
  DWORD listBytes = 0;
  if (!K32EnumProcesses(processIds, ProcessListBytes, &listBytes) || listBytes > ProcessListBytes) {
    return 0;
  }
  return static_cast<u32>(listBytes / sizeof(DWORD));
}

// The base name of the process's first module, or "<unknown>" when it cannot be read.
void ReadProcessName(HANDLE process, WCHAR (&name)[ProcessNameChars]) {
  constexpr WCHAR UnknownName[] = TEXT("<unknown>");
  HMODULE firstModule = nullptr;
  DWORD neededBytes = 0;
  if (process == nullptr ||
      !K32EnumProcessModules(process, &firstModule, sizeof(firstModule), &neededBytes) ||
      K32GetModuleBaseNameW(process, firstModule, name, ProcessNameChars) == 0) {
    std::memcpy(name, UnknownName, sizeof(UnknownName));
  }
  name[ProcessNameChars - 1] = 0;
}

bool IsCandidate(DWORD sessionId, const candidateSessionID& candidates) {
  for (u32 j = 0; j < candidates.count; ++j) {
    WriteDebugFormat(TEXT("candidateSessionID.sessionIDs[j] :: %d\n"), candidates.sessionIDs[j]);
    if (sessionId == candidates.sessionIDs[j]) {
      WriteDebugFormat(TEXT("Find the current session:: %d\n"), sessionId);
      return true;
    }
  }
  return false;
}

i32 ChooseExplorer(const DWORD* explorerIds, u32 explorerCount,
                   const candidateSessionID& candidates, DWORD* processId) {
  for (u32 index = 0; index < explorerCount; ++index) {
    WriteDebugFormat(TEXT("Processid of explorer:: %d\n"), explorerIds[index]);
    // Session 0, which is never a candidate, stands for one that cannot be told.
    DWORD sessionId = 0;
    if (!ProcessIdToSessionId(explorerIds[index], &sessionId)) {
      sessionId = 0;
    }
    if (IsCandidate(sessionId, candidates)) {
      *processId = explorerIds[index];
      return 1;
    }
  }
  return 0;
}

}  // namespace

i32 FindActiveUserSession(DWORD* processId) {
  RegistryKey logonUiKey;
  LSTATUS outcome = OpenLogonKey(LogonUiPath, logonUiKey);
  if (outcome != ERROR_SUCCESS) {
    WriteDebugFormat(TEXT("RegOpenKeyEx Logonuipath: 0x%x\n"), outcome);
    return 0;
  }
  RegistryKey sessionDataKey;
  outcome = OpenLogonKey(SessionDataPath, sessionDataKey);
  if (outcome != ERROR_SUCCESS) {
    WriteDebugFormat(TEXT("RegOpen Session: 0x%x\n"), outcome);
    return 0;
  }

  candidateSessionID candidates = {};
  CollectCandidateSessions(logonUiKey.get(), sessionDataKey.get(), &candidates);

  // The first list is used again for the result, so the search reads a copy of it.
  DWORD processIds[MaxProcesses];
  DWORD examinedIds[MaxProcesses];
  const u32 processCount = ListProcesses(processIds);
  std::memcpy(examinedIds, processIds, processCount * sizeof(DWORD));
  u32 explorerCount = 0;
  if (FindExplorerProcesses(examinedIds, processCount, processIds, &explorerCount) == 0) {
    return 0;
  }
  return ChooseExplorer(processIds, explorerCount, candidates, processId);
}

void CollectCandidateSessions(HKEY logonUiKey, HKEY sessionDataKey, candidateSessionID* sessions) {
  if (sessions == nullptr) {
    WriteDebugText(TEXT("sessionid must not be null\n"));
    return;
  }
  sessions->count = 0;
  DWORD subkeyCount = 0;
  if (RegQueryInfoKeyW(sessionDataKey, nullptr, nullptr, nullptr, &subkeyCount, nullptr, nullptr,
                       nullptr, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
    subkeyCount = 0;
  }
  WCHAR selectedSid[SidChars];
  if (!ReadSid(logonUiKey, TEXT(""), TEXT("SelectedUserSID"), selectedSid)) {
    return;
  }

  for (DWORD index = 0; index < subkeyCount && sessions->count < MaxCandidateSessions; ++index) {
    if (IsUserLoggedOn(sessionDataKey, index, selectedSid)) {
      // A subkey that cannot be read still counts as a position.
      sessions->sessionIDs[sessions->count++] = index + 1;
    }
  }
}

i32 FindExplorerProcesses(const DWORD* processIds, u32 processCount, DWORD* explorerIds,
                          u32* explorerCount) {
  if (processIds == nullptr || processCount == 0) {
    return 0;
  }
  u32 found = 0;
  for (u32 index = 0; index < processCount; ++index) {
    const KernelHandle process(OpenProcess(PROCESS_ALL_ACCESS, FALSE, processIds[index]));
    WCHAR name[ProcessNameChars];
    ReadProcessName(process.get(), name);
    if (WideEqualsIgnoringCase(name, TEXT("explorer.exe"))) {
      WriteDebugFormat(TEXT("Find explorer: %d\n"), processIds[index]);
      explorerIds[found++] = processIds[index];
    }
  }
  *explorerCount = found;
  return 1;
}
