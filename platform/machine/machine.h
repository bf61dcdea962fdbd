// The simulated machine: what the calls of the layer act on, and how a test or the simulator steers
// it. No product file includes this.
//
// One machine lives in one host process and is never destroyed; it stands for one boot of the
// computer with one life of the service's process in it.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/machine/call_gate.h"
#include "platform/machine/debug_log.h"
#include "platform/machine/device_tree.h"
#include "platform/machine/drive.h"
#include "platform/machine/fault_log.h"
#include "platform/machine/handle_table.h"
#include "platform/machine/heap.h"
#include "platform/machine/notifications.h"
#include "platform/machine/power.h"
#include "platform/machine/processes.h"
#include "platform/machine/registry.h"
#include "platform/machine/scheduler.h"
#include "platform/machine/service_manager.h"
#include "platform/machine/transfer_log.h"
#include "platform/machine/wait_record.h"

namespace platform {

// What cannot be changed once the machine is on.
struct MachineOptions {
  SchedulerOptions scheduler;
  std::string driveFolder;  // the host folder that is the machine's drive C:
};

// The parts are open: a script and the calls of the layer go to them directly. Each has a lock of
// its own, and none of them is held while the service or an observer is called, but for faults.
class Machine {
 public:
  explicit Machine(const MachineOptions& options);

  // Time and threads come first, because the others are built on them; faults next, because the
  // others report theirs there.
  Scheduler scheduler;
  FaultLog faults;
  HandleTable handles;
  CallGate gate;
  Observers<WaitRecord> waits;
  Heap heap;
  DebugLog debugLog;
  Drive drive;
  Registry registry;
  ProcessTable processes;
  Power power;
  ServiceManager services;
  NotificationCenter notifications;
  TransferLog transfers;
  DeviceTree devices;

  // Starts the service's process: runs its entry on a thread of its own. When the entry returns,
  // the process ends: none of its threads ever runs again.
  void StartServiceProcess(std::function<int()> entry);

  // Ends the process on the spot, as a power cut or a kill would. Callable from any thread; a
  // thread of the service does not come back from it.
  void KillServiceProcess();

  // What the entry returned; empty while it runs, and after a kill.
  std::optional<int> processExitCode() const;

 private:
  mutable std::mutex lock_;
  std::optional<int> exitCode_;
};

// Switches the machine on, with the calling thread as its first thread (the script). Once per host
// process.
Machine& SwitchOnMachine(const MachineOptions& options);

// The machine that is on. Ends the host process with a message when there is none.
Machine& TheMachine();

}  // namespace platform
