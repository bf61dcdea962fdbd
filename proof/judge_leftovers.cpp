#include "proof/judge_leftovers.h"

#include "platform/machine/machine.h"
#include "proof/trial_report.h"
#include "simulator/product_memory.h"
#include "simulator/tablet.h"
#include "simulator/wire_requests.h"

namespace proof {

namespace {

// An update begins by reading the device descriptor, and so does its leave.
bool IsRefresh(const WINUSB_SETUP_PACKET& setup) {
  return setup.RequestType == StandardToHost && setup.Request == GetDescriptorRequest &&
         setup.Value == 0x0100;
}

// A device that asked to be left alone until later and was pulled: the operation learns of it then.
bool IsLeftAlone(const std::vector<Event>& events, u64 nowMs) {
  for (auto event = events.rbegin(); event != events.rend(); ++event) {
    if (event->what != Happening::Transfer || event->side != Side::Dfu) {
      continue;
    }
    const u32 leftAloneMs = LeftAloneMs(event->transfer.setup, event->transfer.data);
    return leftAloneMs != 0 && event->timeMs + leftAloneMs >= nowMs;
  }
  return false;
}

// Whether the last thing that any device was told is to leave DFU mode. The image of an update that
// failed early stays until the next one begins.
bool LeftLast(const std::vector<Event>& events) {
  for (auto event = events.rbegin(); event != events.rend(); ++event) {
    if (event->what != Happening::Transfer || event->side != Side::Dfu) {
      continue;
    }
    const WINUSB_SETUP_PACKET& setup = event->transfer.setup;
    if (IsRefresh(setup)) {
      return false;
    }
    if (setup.RequestType == HostToInterface && setup.Request == DfuDnload) {
      return setup.Length == 0;
    }
  }
  return false;
}

// Some live as long as the process; the table of those is the tests' one, too.
void LookAtHandles(platform::Machine& machine, std::vector<std::string>& faults) {
  const std::string at = At(machine.scheduler.NowMs());
  for (const auto& [kind, count] : CountOpenHandles(machine)) {
    const std::size_t most = LongLivedHandles(kind);
    if (count > most) {
      faults.push_back(at + "expected at most " + std::to_string(most) + " " +
                       platform::NameOf(kind) + " handles at the end, found " +
                       std::to_string(count));
    }
  }
}

}  // namespace

// An update that is held up by a device's own wish is not over, so nothing can be asked yet.
std::vector<std::string> JudgeLeftovers(const History& history, platform::Machine& machine,
                                        const TrialPlan& plan) {
  std::vector<std::string> faults;
  if (IsLeftAlone(history.events(), machine.scheduler.NowMs())) {
    return faults;
  }
  LookAtHandles(machine, faults);
  const std::string at = At(machine.scheduler.NowMs());
  if (machine.heap.OpenBlocks() != 0) {
    faults.push_back(at + "expected no block of the process heap at the end, found " +
                     std::to_string(machine.heap.OpenBlocks()));
  }
  // The memory maps of the last device stay: an array, and a sector table for each setting.
  const std::size_t most = 1 + plan.keyboard.alternateSettings.size();
  const std::size_t blocks = ProductMemory().blocks;
  if (LeftLast(history.events()) && blocks > most) {
    faults.push_back(at + "expected at most " + std::to_string(most) +
                     " blocks of memory at the end, found " + std::to_string(blocks));
  }
  return faults;
}

}  // namespace proof
