// The power status.
#include <windows.h>

#include "platform/winapi/platform_call.h"

using platform::Call;
using platform::LastErrorCall;
using platform::Scheduler;
using platform::TheMachine;

// A failed reading is noted, too: the service decides by it as well as by a number.
BOOL WINAPI GetSystemPowerStatus(LPSYSTEM_POWER_STATUS lpSystemPowerStatus) {
  const LastErrorCall<BOOL> call(Call::GetSystemPowerStatus);
  call.Note(lpSystemPowerStatus);
  platform::PowerReading reading{TheMachine().scheduler.NowMs(), Scheduler::Current()->id(), {}};
  if (!call.fails()) {
    *lpSystemPowerStatus = TheMachine().power.Status();
    reading.percent = lpSystemPowerStatus->BatteryLifePercent;
  }
  TheMachine().power.readings.Add(reading);
  return call.fails() ? call.Fail() : TRUE;
}
