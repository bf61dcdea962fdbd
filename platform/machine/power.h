// The tablet's battery.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <optional>

#include "platform/machine/records.h"

namespace platform {

// One GetSystemPowerStatus.
struct PowerReading {
  std::uint64_t timeMs;
  std::uint32_t threadId;
  std::optional<BYTE> percent;  // as the caller was told; empty: the call failed
};

// Windows tells a charge in whole percent and a flag for its rough level. A tablet without a
// battery, or whose driver does not answer, tells 255. That is not a failure of the call, so
// whoever asks has to tell the number from a charge. Any thread.
class Power {
 public:
  // 0 to 100; 255 when the machine cannot tell.
  void SetBatteryPercent(BYTE percent) { batteryPercent_ = percent; }

  // On battery, as Windows reports it: not charging, and the flag follows from the percentage. The
  // seconds that are left are unknown, as with many drivers.
  SYSTEM_POWER_STATUS Status() const;

  // Every time that the service asked.
  RecordLog<PowerReading> readings;

 private:
  std::atomic<BYTE> batteryPercent_{80};
};

}  // namespace platform
