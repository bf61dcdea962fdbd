// Starting the notifier for the user who is logged on.

#include "notifier/notifier_launch.h"

#include <algorithm>

#include "common/package_values.h"
#include "notifier/notifier_message.h"
#include "platform/machine/text.h"
#include "tests/support/service_test.h"

namespace {

using platform::HandleKind;
using Strings = std::vector<std::string>;

const std::string Repository = simulator::FileRepository;
const std::string NotifierPath = Repository + simulator::DefaultPackageFolder + "\\Pellory.exe";

class NotifierLaunchTest : public ServiceTest {
 protected:
  void SetUp() override {
    InstallPackage();
    ChooseFolder(simulator::DefaultPackageFolder);
  }

  void ChooseFolder(const std::string& name) {
    packageFolder = {};
    name.copy(packageFolder.cFileName, sizeof(packageFolder.cFileName));
  }

  // What was written after the search for the user's session, when the word is told.
  Strings Tell(const NotifierMessage& word) {
    LookFromHere();
    EXPECT_EQ(LaunchNotifier(word), 0);
    Strings lines = Lines();
    const auto found = std::find(lines.begin(), lines.end(), "Find the current session:: 1\n");
    if (found != lines.end()) {
      lines.erase(lines.begin(), found + 1);
    }
    return lines;
  }

  std::vector<platform::LaunchedProcess> Launched() { return machine.processes.launches.All(); }

  // Every process, thread, token and environment closed once, and nothing else.
  void ExpectCleanedUp(const char* what) {
    const auto opened = [&](HandleKind kind) { return machine.handles.OpenedEver(kind); };
    EXPECT_EQ(machine.gate.CountOf(Call::CloseHandle),
              opened(HandleKind::Process) + opened(HandleKind::Token))
        << what;
    EXPECT_EQ(machine.gate.CountOf(Call::DestroyEnvironmentBlock),
              opened(HandleKind::EnvironmentBlock))
        << what;
  }
};

TEST_F(NotifierLaunchTest, StartsTheNotifierOnTheUsersDesktop) {
  LogOnUser();
  // A standard user's token does not hold the privilege.
  EXPECT_EQ(Tell(NotifierMessage::Disconnect),
            (Strings{"Process token open error: 1300\n", NotifierPath, "DISCONNECT"}));
  ASSERT_EQ(Launched().size(), 1u);
  const platform::LaunchedProcess notifier = Launched()[0];
  EXPECT_EQ(platform::Utf8FromWide(notifier.imagePath), NotifierPath);
  EXPECT_EQ(notifier.commandLine, u"DISCONNECT");
  EXPECT_EQ(notifier.desktop, u"winsta0\\default");
  EXPECT_EQ(notifier.creationFlags, 0x430u);
  EXPECT_EQ(notifier.sessionId, 1u);
  ExpectCleanedUp("all is well");
}

TEST_F(NotifierLaunchTest, AsksForTheRightsThatTheLaunchNeeds) {
  LogOnUser();
  std::vector<DWORD> asked;
  AtCall(Call::CreateProcessAsUserW, 1, [&] {
    for (const auto& process : OpenObjects<platform::OpenProcessObject>()) {
      asked.push_back(process->access.asked());
    }
    for (const auto& token : OpenObjects<platform::TokenObject>()) {
      asked.push_back(token->access.asked());
    }
  });
  Tell(NotifierMessage::Start);
  EXPECT_EQ(asked, (std::vector<DWORD>{MAXIMUM_ALLOWED, 0x201EB, MAXIMUM_ALLOWED}));
}

TEST_F(NotifierLaunchTest, EnablesThePrivilegeOfATokenThatHoldsIt) {
  LogOnUser();
  machine.processes.Remove(simulator::ShellProcessId);
  machine.processes.Add(
      {.id = 8, .moduleName = u"explorer.exe", .sessionId = 1, .holdsDebugPrivilege = true});
  EXPECT_EQ(Tell(NotifierMessage::Start), (Strings{NotifierPath, "START"}));
  ASSERT_EQ(Launched().size(), 1u);
  EXPECT_TRUE(Launched()[0].debugPrivilegeEnabled);
}

TEST_F(NotifierLaunchTest, GoesOnAfterAFailedStep) {
  LogOnUser();
  // Beyond 2^31, so that signed and unsigned lines differ.
  constexpr DWORD Error = 0x80000005;
  const std::string error = "Process token open error: 2147483653\n";
  const std::string invalid = "Process token open error: 6\n";
  const std::string notHeld = "Process token open error: 1300\n";
  const std::string notOpened = "Process token open error: -2147483643\n";
  const std::string notDuplicated = "DuplicateTokenEx error: 6\n";
  const std::string refused = "DuplicateTokenEx error: 2147483653\n";
  const std::string unknown = "LookupPrivilegeValue error: 2147483653\n";
  const std::string& path = NotifierPath;
  // The flags are those of the notifier that is started, 0 for none.
  const std::tuple<Call, DWORD, Strings, DWORD> cases[] = {
      {Call::OpenProcess, Error, {invalid, notDuplicated, invalid, path, "START", invalid}, 0},
      {Call::OpenProcessToken,
       Error,
       {notOpened, notDuplicated, invalid, path, "START", invalid},
       0},
      {Call::LookupPrivilegeValueW, Error, {unknown, notHeld, path, "START"}, 0x430},
      {Call::DuplicateTokenEx, Error, {refused, invalid, path, "START", invalid}, 0},
      {Call::AdjustTokenPrivileges, Error, {error, path, "START"}, 0x430},
      {Call::AdjustTokenPrivileges, 1300, {notHeld, notHeld, path, "START"}, 0x430},
      {Call::CreateEnvironmentBlock, Error, {notHeld, path, "START"}, 0x30},
      {Call::CreateProcessAsUserW, Error, {notHeld, path, "START", error}, 0},
  };
  for (const auto& [call, failure, lines, flags] : cases) {
    const std::size_t launchedBefore = Launched().size();
    // The search for the session opens four processes before the shell is opened for its token.
    FailCall(call, failure, call == Call::OpenProcess ? 5 : 1);
    EXPECT_EQ(Tell(NotifierMessage::Start), lines) << NameOf(call);
    ASSERT_EQ(Launched().size(), launchedBefore + (flags == 0 ? 0 : 1)) << NameOf(call);
    if (flags != 0) {
      EXPECT_EQ(Launched().back().creationFlags, flags) << NameOf(call);
      EXPECT_EQ(Launched().back().environmentGiven, flags == 0x430) << NameOf(call);
    }
    ExpectCleanedUp(NameOf(call));
  }
}

TEST_F(NotifierLaunchTest, StartsNothingWithoutAUser) {
  EXPECT_EQ(Tell(NotifierMessage::Start), Strings{"Getprocessid fail\n"});
  EXPECT_EQ(Launched().size(), 0u);
}

TEST_F(NotifierLaunchTest, BuildsThePathFromTheFolderAsItIs) {
  LogOnUser();
  const std::pair<std::string, std::string> cases[] = {
      {"", "\\Pellory.exe"},
      {"100%% %d %s", "100%% %d %s\\Pellory.exe"},
      {"k\x80y\xE9", "k\u20ACy\u00E9\\Pellory.exe"},
      {std::string(259, 'x'), std::string(259, 'x') + "\\Pellory.exe"},
  };
  for (const auto& [folder, path] : cases) {
    ChooseFolder(folder);
    EXPECT_EQ(Tell(NotifierMessage::Start)[1], Repository + path);
  }
}

TEST_F(NotifierLaunchTest, ReportsANotifierThatCannotBeStarted) {
  LogOnUser();
  machine.drive.Remove(NotifierPath);
  EXPECT_EQ(Tell(NotifierMessage::Complete).back(), "Process token open error: 2\n");
  ExpectCleanedUp("no notifier");

  FailCall(Call::MultiByteToWideChar, ERROR_NO_UNICODE_TRANSLATION);
  EXPECT_EQ(Tell(NotifierMessage::Start), (Strings{"Process token open error: 1300\n", "", "START",
                                                   "Process token open error: 3\n"}));
  EXPECT_EQ(Launched().size(), 0u);
}

}  // namespace
