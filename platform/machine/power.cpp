#include "platform/machine/power.h"

namespace platform {

namespace {

// High, neither, low, critical, unknown.
BYTE FlagFor(BYTE percent) {
  if (percent == 255) {
    return 255;
  }
  return percent > 66 ? 1 : percent >= 33 ? 0 : percent >= 5 ? 2 : 4;
}

}  // namespace

// The times that are left are unknown: a tablet's driver seldom tells them, and nobody asks here.
SYSTEM_POWER_STATUS Power::Status() const {
  constexpr DWORD Unknown = 0xFFFFFFFF;
  const BYTE percent = batteryPercent_;
  return {0, FlagFor(percent), percent, 0, Unknown, Unknown};
}

}  // namespace platform
