// How a failed test prints the values of enumerations: by the names they have in the code.
#pragma once

#include <map>
#include <ostream>
#include <string>

#include "platform/machine/call_gate.h"
#include "platform/machine/device_backend.h"
#include "simulator/virtual_keyboard.h"

namespace platform {

inline void PrintTo(Call call, std::ostream* out) {
  *out << NameOf(call);
}

inline void PrintTo(UsbResult result, std::ostream* out) {
  static constexpr const char* Names[] = {"Done", "Stalled", "TimedOut", "Vanished", "Absent"};
  *out << Names[static_cast<int>(result)];
}

}  // namespace platform

namespace simulator {

inline void PrintTo(DfuState state, std::ostream* out) {
  static const std::map<int, const char*> Names = {
      {dfuIDLE, "dfuIDLE"},
      {dfuDNLOADSYNC, "dfuDNLOAD-SYNC"},
      {dfuDNBUSY, "dfuDNBUSY"},
      {dfuDNLOADIDLE, "dfuDNLOAD-IDLE"},
      {dfuMANIFESTSYNC, "dfuMANIFEST-SYNC"},
      {dfuMANIFEST, "dfuMANIFEST"},
      {dfuERROR, "dfuERROR"},
  };
  const auto name = Names.find(state);
  *out << (name == Names.end() ? "no state" : name->second);
}

inline void PrintTo(KeyboardMode mode, std::ostream* out) {
  static constexpr const char* Names[] = {"Detached", "Restarting", "Normal", "Dfu"};
  *out << Names[static_cast<int>(mode)];
}

}  // namespace simulator
