// How much of a run is told.
#pragma once

namespace simulator {

// What only somebody who asks for it wants to read.
struct TimelineOptions {
  bool wire = false;   // every transfer between the service and a device
  bool calls = false;  // every platform call
};

}  // namespace simulator
