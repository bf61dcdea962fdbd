// The two ways in which a call of the layer ends before it has done anything.
#pragma once

#include <windows.h>

#include <string>

#include "platform/machine/machine.h"

namespace platform {

// Enters a call that reports by the last error; true when it is to fail with the one now set.
inline bool FailsAtEntry(Call call) {
  const DWORD error = EnterCall(call);
  if (error != 0) {
    SetLastError(error);
  }
  return error != 0;
}

// Tells that the caller asked for something that the layer does not model. Returns the error that
// the call fails with, which is the last error, too.
inline DWORD Refuse(Call call, const std::string& what) {
  TheMachine().faults.Add(std::string(NameOf(call)) + ": " + what + " not modelled");
  SetLastError(ERROR_NOT_SUPPORTED);
  return ERROR_NOT_SUPPORTED;
}

}  // namespace platform
