// The tablet's battery.
#pragma once

#include <windows.h>

#include <atomic>

namespace platform {

class Power {
 public:
  // 0 to 100; 255 when the machine cannot tell.
  void SetBatteryPercent(BYTE percent) { batteryPercent_ = percent; }

  // On battery, as Windows reports it.
  SYSTEM_POWER_STATUS Status() const;

 private:
  std::atomic<BYTE> batteryPercent_{80};
};

}  // namespace platform
