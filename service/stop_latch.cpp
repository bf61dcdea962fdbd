#include "service/stop_latch.h"

#include <atomic>

namespace {

std::atomic<bool> stopSeen{false};

}  // namespace

void LatchStop() {
  stopSeen.store(true);
}

bool StopSeen() {
  return stopSeen.load();
}
