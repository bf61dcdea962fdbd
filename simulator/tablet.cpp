#include "simulator/tablet.h"

#include <stdexcept>

#include "platform/machine/machine.h"

// service/main.cpp, compiled under this name.
int VantrelMain();

namespace simulator {

namespace {

constexpr char16_t LogonUiKey[] =
    u"Software\\Microsoft\\Windows\\CurrentVersion\\Authentication\\LogonUI";
constexpr char16_t SessionDataKey[] =
    u"Software\\Microsoft\\Windows\\CurrentVersion\\Authentication\\LogonUI\\SessionData";
constexpr char16_t FirstSessionKey[] =
    u"Software\\Microsoft\\Windows\\CurrentVersion\\Authentication\\LogonUI\\SessionData\\1";
constexpr char16_t UserSid[] = u"S-1-5-21-1004336348-1177238915-682003330-1001";

platform::Machine& SwitchOn(const TabletOptions& options, const std::string& driveFolder) {
  platform::MachineOptions machineOptions;
  machineOptions.scheduler = options.scheduler;
  machineOptions.driveFolder = driveFolder;
  return platform::SwitchOnMachine(machineOptions);
}

std::string Narrow(const std::u16string& text) {
  return {text.begin(), text.end()};
}

}  // namespace

Tablet::Tablet(const TabletOptions& options)
    : driveFolder_(options.driveFolder.empty() ? ownFolder_.emplace().path() : options.driveFolder),
      machine_(SwitchOn(options, driveFolder_)) {
  // What every Windows has before anybody logs on. The service looks for its package folder and its
  // user here.
  machine_.drive.MakeFolder(FileRepository);
  machine_.registry.MakeKey(LogonUiKey);
  machine_.registry.MakeKey(SessionDataKey);
  // The system's own process lets nobody in; the services hold the debug privilege, and vantrel.exe
  // is among them.
  machine_.processes.Add({.id = 4, .moduleName = u"System", .accessible = false});
  machine_.processes.Add({.id = 812, .moduleName = u"services.exe", .holdsDebugPrivilege = true});
  machine_.processes.Add({.id = 2044, .moduleName = u"vantrel.exe", .holdsDebugPrivilege = true});
}

// The driver store keeps a package in a folder whose name ends in a hash; the service finds it by
// how the name begins.
void Tablet::InstallPackage(const std::string& fileName, const std::vector<u8>& bytes,
                            const std::string& folder) {
  const std::string path = FileRepository + folder + "\\";
  if (!machine_.drive.WriteFile(path + "Pellory.exe", "MZ", 2) ||
      !machine_.drive.WriteFile(path + fileName, bytes.data(), bytes.size())) {
    throw std::runtime_error("cannot write the package to the tablet's drive in " + driveFolder_);
  }
}

// Windows keeps who is at the screen in these keys. The shell's process carries the session and a
// token to start programs with.
void Tablet::LogOnUser() {
  machine_.registry.SetString(LogonUiKey, u"SelectedUserSID", UserSid);
  machine_.registry.SetString(FirstSessionKey, u"LoggedOnUserSID", UserSid);
  machine_.processes.Add({.id = ShellProcessId, .moduleName = u"explorer.exe", .sessionId = 1});
}

// The keys of the session go and so does the shell. The service finds nobody to tell.
void Tablet::LogOffUser() {
  machine_.registry.RemoveKey(FirstSessionKey);
  machine_.processes.Remove(ShellProcessId);
}

// Automatic start, as the driver package installs it.
void Tablet::StartService() {
  machine_.StartServiceProcess(RunServiceProcess);
}

void Tablet::PassTime(u64 milliseconds) {
  machine_.scheduler.SleepMs(milliseconds);
}

u64 Tablet::nowMs() const {
  return machine_.scheduler.NowMs();
}

bool Tablet::PassTimeUntil(const std::function<bool()>& condition, u64 atMostMs) {
  return machine_.scheduler.WaitUntil(condition, nowMs() + atMostMs);
}

// The notifier shows the one word on its command line, so a word is told when it is started.
std::vector<ToldWord> Tablet::WordsTold() const {
  std::vector<ToldWord> words;
  for (const platform::LaunchedProcess& launch : machine_.processes.launches.All()) {
    words.push_back({Narrow(launch.commandLine), launch.timeMs, launch.threadId});
  }
  return words;
}

void Tablet::Remove() {
  ownFolder_.reset();
}

std::size_t LongLivedHandles(platform::HandleKind kind) {
  switch (kind) {
    case platform::HandleKind::Mutex:
      // Opened at start-up and left to the end of the process, as a service may.
      return 3;  // decisions, the update, the order of reports
    case platform::HandleKind::Event:
      return 1;  // of the tick thread
    case platform::HandleKind::Notification:
      return 2;  // one a device interface class
    case platform::HandleKind::ServiceStatus:
      return 1;
    default:
      return 0;
  }
}

std::map<platform::HandleKind, std::size_t> CountOpenHandles(const platform::Machine& machine) {
  std::map<platform::HandleKind, std::size_t> open;
  for (const platform::OpenHandle& handle : machine.handles.OpenHandles()) {
    ++open[handle.kind];
  }
  return open;
}

int RunServiceProcess() {
  return VantrelMain();
}

}  // namespace simulator
