#include "simulator/stage.h"

#include "platform/machine/machine.h"
#include "simulator/tablet.h"
#include "simulator/virtual_keyboard.h"

namespace simulator {

platform::Machine& Stage::machine() const {
  return tablet.machine();
}

void Stage::LogOffUser() {
  tablet.LogOffUser();
  note(StageEvent::UserLeft);
}

void Stage::LogOnUser() {
  tablet.LogOnUser();
  note(StageEvent::UserCame);
}

void Stage::StopService() {
  note(StageEvent::StopSent);
  machine().services.SendControl(SERVICE_CONTROL_STOP);
}

void Stage::RefuseOpens() {
  note(StageEvent::OpenRefused);
  keyboard.Change([](KeyboardOptions& options) { options.dfuOpenError = ERROR_ACCESS_DENIED; });
}

void Stage::AttachSecond() {
  secondCame = true;
  second.AttachInDfuMode();
}

}  // namespace simulator
