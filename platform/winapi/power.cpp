// The power status.
#include <windows.h>

#include "platform/winapi/refusal.h"

BOOL WINAPI GetSystemPowerStatus(LPSYSTEM_POWER_STATUS lpSystemPowerStatus) {
  if (platform::FailsAtEntry(platform::Call::GetSystemPowerStatus)) {
    return FALSE;
  }
  *lpSystemPowerStatus = platform::TheMachine().power.Status();
  return TRUE;
}
