// The one tablet of a fuzzer's process. Its machine lives through all inputs.
#pragma once

#include "platform/machine/machine.h"
#include "simulator/tablet.h"

inline simulator::Tablet& FuzzTablet() {
  static simulator::Tablet& tablet = *[] {
    auto* const made = new simulator::Tablet({});
    made->LogOnUser();
    made->machine().handles.RecycleValues(true);
    return made;
  }();
  return tablet;
}
