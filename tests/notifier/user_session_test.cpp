// Which shell belongs to the user who is logged on.

#include "notifier/user_session.h"

#include <set>

#include "common/handles.h"
#include "tests/support/tablet_test.h"

namespace {

using platform::Call;
using platform::RegistryValue;
using Strings = std::vector<std::string>;

constexpr char FirstCandidate[] = "candidateSessionID.sessionIDs[j] :: 1\n";
constexpr char SecondCandidate[] = "candidateSessionID.sessionIDs[j] :: 2\n";
constexpr DWORD Nothing = 0;
constexpr REGSAM FullAccess = KEY_ALL_ACCESS | KEY_WOW64_64KEY;
constexpr char16_t LogonUi[] =
    u"Software\\Microsoft\\Windows\\CurrentVersion\\Authentication\\LogonUI";
const std::u16string SessionData = std::u16string(LogonUi) + u"\\SessionData";
const std::u16string User = u"S-1-5-21-42-1001";

RegistryValue Raw(DWORD type, const std::u16string& text, std::size_t bytes) {
  const auto* const begin = reinterpret_cast<const BYTE*>(text.data());
  return {type, {begin, begin + bytes}};
}

RegistryValue Sid(const std::u16string& text) {
  return Raw(REG_SZ, text, (text.size() + 1) * sizeof(WCHAR));
}

// Subkeys with the SID of the user who is logged on there.
using Sessions = std::vector<std::pair<std::u16string, RegistryValue>>;

class UserSessionTest : public TabletTest {
 protected:
  void SetUsers(const RegistryValue& selected, const Sessions& sessions) {
    machine.registry.SetValue(LogonUi, u"SelectedUserSID", selected.type, selected.bytes);
    machine.registry.RemoveKey(SessionData);
    machine.registry.MakeKey(SessionData);
    for (const auto& [name, sid] : sessions) {
      machine.registry.SetValue(SessionData + u"\\" + name, u"LoggedOnUserSID", sid.type,
                                sid.bytes);
    }
  }

  std::vector<u32> Candidates() {
    RegistryKey logonUi, sessionData;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, LogonUi, 0, FullAccess, logonUi.Receive());
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, SessionData.c_str(), 0, FullAccess, sessionData.Receive());
    candidateSessionID sessions = {{9, 9, 9, 9, 9}, 9};
    CollectCandidateSessions(logonUi.get(), sessionData.get(), &sessions);
    return {sessions.sessionIDs, sessions.sessionIDs + (sessions.count <= 5 ? sessions.count : 0)};
  }

  void AddProcess(DWORD id, const std::u16string& name, DWORD session, bool accessible = true) {
    machine.processes.Add(
        {.id = id, .moduleName = name, .sessionId = session, .accessible = accessible});
  }

  DWORD Find() {
    LookFromHere();
    DWORD processId = Nothing;
    const i32 found = FindActiveUserSession(&processId);
    EXPECT_EQ(found, processId == Nothing ? 0 : 1);
    return processId;
  }
};

TEST_F(UserSessionTest, CandidatesArePositionsOfTheSelectedUsersSessions) {
  const RegistryValue user = Sid(User);
  const RegistryValue other = Sid(u"S-1-5-21-42-1002");
  const RegistryValue unterminated = Raw(REG_SZ, User, User.size() * 2);
  const RegistryValue binary = Raw(REG_BINARY, User, User.size() * 2 + 2);
  const RegistryValue longest = Sid(std::u16string(255, u'S'));  // 512 bytes
  const RegistryValue tooLong = Sid(std::u16string(256, u'S'));
  const Sessions six = {{u"1", user}, {u"2", user}, {u"3", user},
                        {u"4", user}, {u"5", user}, {u"6", user}};
  const std::tuple<const char*, RegistryValue, Sessions, std::vector<u32>> cases[] = {
      {"position, not name", user, {{u"7", user}}, {1}},
      {"two of three", user, {{u"1", user}, {u"2", other}, {u"3", user}}, {1, 3}},
      {"six", user, six, {1, 2, 3, 4, 5}},
      {"none", user, {}, {}},
      {"other case", user, {{u"1", Sid(u"s-1-5-21-42-1001")}}, {}},
      {"same beginning", user, {{u"1", Sid(User + u"0")}, {u"2", Sid(u"S-1-5-21-42-100")}}, {}},
      {"short before long", user, {{u"1", Sid(u"S")}, {u"2", user}}, {2}},
      {"longest name", user, {{std::u16string(254, u'a'), user}, {u"b", user}}, {1, 2}},
      {"name too long", user, {{std::u16string(255, u'a'), user}, {u"b", user}}, {2}},
      {"longest SID", longest, {{u"1", longest}, {u"2", tooLong}}, {1}},
      {"SID too long", tooLong, {{u"1", tooLong}, {u"2", longest}}, {}},
      {"unterminated", user, {{u"1", unterminated}}, {1}},
      {"odd length", user, {{u"1", Raw(REG_SZ, User, User.size() * 2 - 1)}}, {1}},
      {"wrong type", user, {{u"1", binary}}, {}},
      {"selected unterminated", unterminated, {{u"1", user}}, {1}},
      {"selected of wrong type", binary, {{u"1", user}, {u"2", Sid(u"")}}, {}},
      {"no bytes", Raw(REG_SZ, u"", 0), {{u"1", Raw(REG_SZ, u"", 0)}}, {}},
  };
  for (const auto& [what, selected, sessions, candidates] : cases) {
    SetUsers(selected, sessions);
    EXPECT_EQ(Candidates(), candidates) << what;
  }
  EXPECT_EQ(Lines(), Strings{});
}

TEST_F(UserSessionTest, LeavesOutSessionsThatCannotBeRead) {
  SetUsers(Sid(User), {{u"1", Sid(User)}, {u"2", Sid(User)}});
  const std::tuple<Call, u32, std::vector<u32>> cases[] = {{Call::RegQueryInfoKeyW, 1, {}},
                                                           {Call::RegGetValueW, 1, {}},
                                                           {Call::RegEnumKeyExW, 1, {2}},
                                                           {Call::RegGetValueW, 2, {2}},
                                                           {Call::RegGetValueW, 3, {1}}};
  for (const auto& [call, occurrence, candidates] : cases) {
    FailCall(call, ERROR_MORE_DATA, occurrence);
    EXPECT_EQ(Candidates(), candidates) << NameOf(call) << " " << occurrence;
  }
  CollectCandidateSessions(nullptr, nullptr, nullptr);
  EXPECT_EQ(Lines(), Strings{"sessionid must not be null\n"});
}

TEST_F(UserSessionTest, TakesTheFirstShellInTheListThatIsInACandidateSession) {
  SetUsers(Sid(User), {{u"1", Sid(User)}, {u"2", Sid(User)}});
  AddProcess(100, u"explorer.exe", 3);
  AddProcess(200, u"EXPLORER.EXE", 2);
  AddProcess(300, u"explorer.exe", 1);
  EXPECT_EQ(Find(), 200u);
  EXPECT_EQ(Lines(), (Strings{"Find explorer: 100\n", "Find explorer: 200\n",
                              "Find explorer: 300\n", "Processid of explorer:: 100\n",
                              FirstCandidate, SecondCandidate, "Processid of explorer:: 200\n",
                              FirstCandidate, SecondCandidate, "Find the current session:: 2\n"}));
}

TEST_F(UserSessionTest, TakesNoOtherProcess) {
  SetUsers(Sid(User), {{u"1", Sid(u"S-1-5-21-42-1002")}, {u"2", Sid(User)}});
  AddProcess(100, u"explorer.exe", 0);
  AddProcess(200, u"explorer.exe", 1);
  AddProcess(300, u"explorer.exe", 2, false);
  AddProcess(400, u"explorer", 2);
  AddProcess(500, u"explorer.exe.mui", 2);
  AddProcess(600, std::u16string(300, u'e'), 2);
  EXPECT_EQ(Find(), Nothing);
  AddProcess(700, u"explorer.exe", 2);
  EXPECT_EQ(Find(), 700u);
}

TEST_F(UserSessionTest, FindsNoShellWhenACallFailsOrListsNothing) {
  LogOnUser();
  // The first of the four processes cannot be opened, and the last one is the shell.
  const std::tuple<Call, u32, Strings> cases[] = {
      {Call::RegOpenKeyExW, 1, {"RegOpenKeyEx Logonuipath: 0x57\n"}},
      {Call::RegOpenKeyExW, 2, {"RegOpen Session: 0x57\n"}},
      {Call::K32EnumProcesses, 1, {}},
      {Call::OpenProcess, 4, {}},
      {Call::K32EnumProcessModules, 3, {}},
      {Call::K32GetModuleBaseNameW, 3, {}},
      {Call::ProcessIdToSessionId,
       1,
       {"Find explorer: 4120\n", "Processid of explorer:: 4120\n", FirstCandidate}}};
  for (const auto& [call, occurrence, lines] : cases) {
    FailCall(call, ERROR_INVALID_PARAMETER, occurrence);
    EXPECT_EQ(Find(), Nothing) << NameOf(call);
    EXPECT_EQ(Lines(), lines) << NameOf(call);
  }
  u32 list = 7;
  EXPECT_EQ(FindExplorerProcesses(nullptr, 1, nullptr, &list), 0);
  EXPECT_EQ(FindExplorerProcesses(&list, 0, nullptr, &list), 0);
  EXPECT_EQ(list, 7u);
}

TEST_F(UserSessionTest, AsksForFullAccessToKeysAndProcesses) {
  LogOnUser();
  std::set<DWORD> keys, processes;
  const platform::Observation watching = machine.gate.Observe([&](Call) {
    for (const auto& key : OpenObjects<platform::OpenRegistryKey>()) {
      keys.insert(key->access.asked());
    }
    for (const auto& process : OpenObjects<platform::OpenProcessObject>()) {
      processes.insert(process->access.asked());
    }
  });
  EXPECT_EQ(Find(), simulator::ShellProcessId);
  EXPECT_EQ(keys, std::set<DWORD>{0xF013F});
  EXPECT_EQ(processes, std::set<DWORD>{0x1FFFFF});
}

TEST_F(UserSessionTest, LooksAtTheFirst1024Processes) {
  while (machine.processes.Ids().size() < 1023) {
    AddProcess(10'000, u"other.exe", 1);
  }
  LogOnUser();
  EXPECT_EQ(Find(), simulator::ShellProcessId);
  tablet.LogOffUser();
  AddProcess(10'000, u"other.exe", 1);
  LogOnUser();
  EXPECT_EQ(Find(), Nothing);
}

}  // namespace
