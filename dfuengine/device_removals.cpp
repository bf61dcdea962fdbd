#include "dfuengine/device_removals.h"

#include <atomic>

namespace {

constinit std::atomic<u32> told{0};
constinit std::atomic<u32> forgotten{0};

}  // namespace

void NoteDfuRemoval() {
  ++told;
}

u32 DfuRemovalsTold() {
  return told;
}

bool DfuRemovalStands(u32 removalsTold) {
  return removalsTold != forgotten;
}

// An answer that comes late must not bring back what was forgotten since.
void ForgetDfuRemovals(u32 removalsTold) {
  u32 before = forgotten;
  while (before < removalsTold && !forgotten.compare_exchange_weak(before, removalsTold)) {
  }
}
