#include "simulator/tablet.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

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

std::string MakeOwnFolder() {
  std::error_code error;
  std::string name = (std::filesystem::temp_directory_path(error) / "vantrel-XXXXXX").string();
  if (!error && mkdtemp(name.data()) == nullptr) {
    error.assign(errno, std::generic_category());
  }
  if (error) {
    throw std::runtime_error("cannot make a folder for the tablet's drive where TMPDIR points: " +
                             error.message());
  }
  return name;
}

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
    : driveFolder_(options.driveFolder.empty() ? MakeOwnFolder() : options.driveFolder),
      ownsFolder_(options.driveFolder.empty()),
      machine_(SwitchOn(options, driveFolder_)) {
  machine_.drive.MakeFolder(FileRepository);
  machine_.registry.MakeKey(LogonUiKey);
  machine_.registry.MakeKey(SessionDataKey);
  machine_.processes.Add({.id = 4, .moduleName = u"System", .accessible = false});
  machine_.processes.Add({.id = 812, .moduleName = u"services.exe", .holdsDebugPrivilege = true});
  machine_.processes.Add({.id = 2044, .moduleName = u"vantrel.exe", .holdsDebugPrivilege = true});
}

void Tablet::InstallPackage(const std::string& fileName, const std::vector<u8>& bytes,
                            const std::string& folder) {
  const std::string path = FileRepository + folder + "\\";
  if (!machine_.drive.WriteFile(path + "Pellory.exe", "MZ", 2) ||
      !machine_.drive.WriteFile(path + fileName, bytes.data(), bytes.size())) {
    throw std::runtime_error("cannot write the package to the tablet's drive in " + driveFolder_);
  }
}

void Tablet::LogOnUser() {
  machine_.registry.SetString(LogonUiKey, u"SelectedUserSID", UserSid);
  machine_.registry.SetString(FirstSessionKey, u"LoggedOnUserSID", UserSid);
  machine_.processes.Add({.id = ShellProcessId, .moduleName = u"explorer.exe", .sessionId = 1});
}

void Tablet::LogOffUser() {
  machine_.registry.RemoveKey(FirstSessionKey);
  machine_.processes.Remove(ShellProcessId);
}

void Tablet::StartService() {
  machine_.StartServiceProcess(RunServiceProcess);
}

void Tablet::PassTime(u64 milliseconds) {
  machine_.scheduler.SleepMs(milliseconds);
}

bool Tablet::PassTimeUntil(const std::function<bool()>& condition, u64 atMostMs) {
  return machine_.scheduler.WaitUntil(condition, nowMs() + atMostMs);
}

std::vector<ToldWord> Tablet::WordsTold() const {
  std::vector<ToldWord> words;
  for (const platform::LaunchedProcess& launch : machine_.processes.Launched()) {
    words.push_back({Narrow(launch.commandLine), launch.timeMs});
  }
  return words;
}

void Tablet::Remove() {
  if (ownsFolder_) {
    std::error_code ignored;
    std::filesystem::remove_all(driveFolder_, ignored);
  }
}

int RunServiceProcess() {
  return VantrelMain();
}

}  // namespace simulator
