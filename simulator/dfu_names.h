// The names that USB DFU 1.1 gives to statuses and states, for what people read.
#pragma once

#include <array>
#include <string>

#include "common/types.h"

namespace simulator {

// bStatus, the first byte of the answer to GETSTATUS: why the last request failed. The numbers
// count up from 0 without a gap. A device that tells a number beyond the standard gets it shown.
inline std::string NameOfDfuStatus(u8 status) {
  constexpr std::array Names = {"OK",         "errTARGET",       "errFILE",     "errWRITE",
                                "errERASE",   "errCHECK_ERASED", "errPROG",     "errVERIFY",
                                "errADDRESS", "errNOTDONE",      "errFIRMWARE", "errVENDOR",
                                "errUSBR",    "errPOR",          "errUNKNOWN",  "errSTALLEDPKT"};
  return status < Names.size() ? Names[status] : "status " + std::to_string(status);
}

// bState, the fifth byte of that answer and the only one of GETSTATE. appIDLE and appDETACH are
// states of a device that still runs its application; the rest belong to DFU mode. The states that
// this bootloader never enters have names as well: a device of another kind may enter them.
inline std::string NameOfDfuState(u8 state) {
  constexpr std::array Names = {"appIDLE",          "appDETACH",   "dfuIDLE",
                                "dfuDNLOAD-SYNC",   "dfuDNBUSY",   "dfuDNLOAD-IDLE",
                                "dfuMANIFEST-SYNC", "dfuMANIFEST", "dfuMANIFEST-WAIT-RESET",
                                "dfuUPLOAD-IDLE",   "dfuERROR"};
  return state < Names.size() ? Names[state] : "state " + std::to_string(state);
}

}  // namespace simulator
