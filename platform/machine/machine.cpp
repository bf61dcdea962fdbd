#include "platform/machine/machine.h"

#include <cstdio>
#include <cstdlib>

namespace platform {

namespace {

// Never destroyed: threads of the machine may still stand in its calls when the host process ends.
Machine* machine = nullptr;

}  // namespace

// The parts know each other through references, in the order in which they are members.
Machine::Machine(const MachineOptions& options)
    : scheduler(options.scheduler),
      handles(faults),
      gate(scheduler),
      heap(faults),
      drive(options.driveFolder),
      services(scheduler),
      notifications(scheduler),
      devices(scheduler, faults, notifications, transfers) {}

// Windows ends a process when its entry returns, whatever its other threads do. The exit code is
// there before anybody can see that the process has ended.
void Machine::StartServiceProcess(std::function<int()> entry) {
  scheduler.Spawn("service process", ThreadOwner::Service, false,
                  [this, entry = std::move(entry)]() -> std::uint32_t {
                    const int exitCode = entry();
                    {
                      const std::scoped_lock lock(lock_);
                      exitCode_ = exitCode;
                    }
                    scheduler.EndServiceProcess();
                    return 0;
                  });
}

void Machine::KillServiceProcess() {
  scheduler.EndServiceProcess();
}

std::optional<int> Machine::processExitCode() const {
  const std::scoped_lock lock(lock_);
  return exitCode_;
}

Machine& SwitchOnMachine(const MachineOptions& options) {
  if (machine != nullptr) {
    std::fprintf(stderr, "a machine is on already: one machine, one host process\n");
    std::abort();
  }
  machine = new Machine(options);
  machine->scheduler.AttachCurrentThread("script", ThreadOwner::Machine);
  return *machine;
}

Machine& TheMachine() {
  if (machine == nullptr) {
    std::fprintf(stderr, "a platform call was made while no machine is on\n");
    std::abort();
  }
  return *machine;
}

}  // namespace platform
