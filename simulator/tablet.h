// The simulated tablet around the service: its drive with the installed driver package, a user who
// is logged on, the battery, and the clock that a script moves.
//
// vantrel-sim and the tests set their runs up with it. One tablet lives in one host process.
#pragma once

#include <windows.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/types.h"
#include "platform/machine/handle_table.h"
#include "platform/machine/scheduler.h"
#include "simulator/host_folder.h"

namespace platform {
class Machine;
}

namespace simulator {

inline constexpr char FileRepository[] = "C:\\Windows\\System32\\DriverStore\\FileRepository\\";
inline constexpr char DefaultPackageFolder[] = "vantrelkbd.inf_arm64_6f0c9a2b41d7e358";

// The process ids of a tablet with one user.
inline constexpr DWORD ShellProcessId = 4120;

struct TabletOptions {
  platform::SchedulerOptions scheduler;

  // The host folder that holds drive C:; empty for one of the tablet's own, which Remove deletes.
  std::string driveFolder;
};

// One word that the service told the user.
struct ToldWord {
  std::string word;
  u64 timeMs;
  u32 threadId;  // of the thread that told it
};

class Tablet {
 public:
  // Switches the machine on with drive C: and processes, but neither a package nor a user. Throws
  // when the host has no folder for the drive.
  explicit Tablet(const TabletOptions& options);

  platform::Machine& machine() { return machine_; }
  const std::string& driveFolder() const { return driveFolder_; }

  // Puts the notifier and a firmware package with that file name into a driver package folder.
  // Throws when the host refuses.
  void InstallPackage(const std::string& fileName, const std::vector<u8>& bytes,
                      const std::string& folder = DefaultPackageFolder);

  // The user of session 1, with a shell.
  void LogOnUser();
  void LogOffUser();

  // Starts the service as the control manager does at boot.
  void StartService();

  void PassTime(u64 milliseconds);

  // Lets time pass until the condition holds or the time is over; whether it holds. The condition
  // may be asked on any thread and calls nothing that blocks.
  bool PassTimeUntil(const std::function<bool()>& condition, u64 atMostMs);

  u64 nowMs() const;

  std::vector<ToldWord> WordsTold() const;

  // Deletes the drive's host folder if it is the tablet's own. Without it, as when the process is
  // killed, the next tablet of the host does.
  void Remove();

 private:
  std::optional<HostFolder> ownFolder_;
  const std::string driveFolder_;
  platform::Machine& machine_;
};

// How many handles of a kind the service opens once and keeps until its process ends.
std::size_t LongLivedHandles(platform::HandleKind kind);

// How many handles are open, by kind.
std::map<platform::HandleKind, std::size_t> CountOpenHandles(const platform::Machine& machine);

// The service's own entry, as service/main.cpp defines it.
int RunServiceProcess();

}  // namespace simulator
