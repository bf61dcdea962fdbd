#include "simulator/hand.h"

#include "platform/machine/machine.h"
#include "simulator/tablet.h"
#include "simulator/virtual_keyboard.h"

namespace simulator {

Hand::Hand(Tablet& tablet, VirtualKeyboard& keyboard, VirtualKeyboard& second, Timeline& timeline,
           const UpdateRunOptions& options)
    : tablet_(tablet),
      keyboard_(keyboard),
      timeline_(timeline),
      options_(options),
      foreign_(tablet.machine(), {}),
      // Nobody judges here, so nobody needs to be told what the hand does.
      // Memory is counted in the proof alone, so none is refused.
      stage_{tablet, keyboard, second, foreign_, deliveries_, [](StageEvent) {}, [](u64) {}},
      troubles_(stage_, options.troubles),
      moments_(MomentsOf(options.troubles, options.attachMs)) {}

void Hand::Begin() {
  // Windows tells of devices in order and at once; only troubles change that.
  if (!options_.troubles.empty()) {
    troubles_.Arm();
    tablet_.machine().notifications.PlanDeliveries(
        [this](const platform::Notice& notice) { return troubles_.PlanDelivery(notice); });
  }
  if (options_.attachMs == 0) {
    PlugIn();
  }
  if (!moments_.empty()) {
    tablet_.machine().scheduler.Spawn("hand", platform::ThreadOwner::Machine, false,
                                      [this]() -> u32 {
                                        Move();
                                        return 0;
                                      });
  }
}

// In DFU mode it is what an update left behind that broke off; in normal mode the flash decides
// what it becomes.
void Hand::PlugIn() {
  timeline_.Write("keyboard",
                  options_.startsInDfuMode
                      ? "is attached in DFU mode"
                      : "is attached with firmware " + VersionText(options_.keyboard.version));
  if (options_.startsInDfuMode) {
    keyboard_.AttachInDfuMode();
  } else {
    keyboard_.Attach();
  }
}

void Hand::Move() {
  for (const Moment& moment : moments_) {
    PassUntil(moment.atMs);
    if (moment.trouble == nullptr) {
      PlugIn();
    } else {
      timeline_.Write("trouble", moment.trouble->kind->told);
      troubles_.Happen(*moment.trouble);
    }
  }
}

// A time that is over already is now: the trouble before it may have taken longer.
void Hand::PassUntil(u64 timeMs) {
  if (timeMs > tablet_.nowMs()) {
    tablet_.PassTime(timeMs - tablet_.nowMs());
  }
}

void Hand::WriteUnmet(std::FILE* stream) const {
  for (const Trouble& trouble : options_.troubles) {
    if (!IsMet(trouble)) {
      std::fprintf(stream, "  never met        %s\n", TroubleText(trouble).c_str());
    }
  }
}

// Times always come.
bool Hand::IsMet(const Trouble& trouble) const {
  switch (trouble.kind->place) {
    case FaultPlace::Block:
      return keyboard_.blocksSent() >= trouble.at;
    case FaultPlace::Erase:
      return keyboard_.erasesSent() >= trouble.at;
    case FaultPlace::Report:
    case FaultPlace::Return:
      return keyboard_.enterDfuReports() > 0 || options_.startsInDfuMode;
    case FaultPlace::Call:
      return tablet_.machine().gate.total() >= trouble.at;
    case FaultPlace::Transfer:
      return tablet_.machine().transfers.total() >= trouble.at;
    case FaultPlace::Request:
      return false;
    case FaultPlace::Time:
      break;
  }
  return true;
}

}  // namespace simulator
