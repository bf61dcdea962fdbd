// What the benchmarks share: a child process for each measurement that needs a simulated machine,
// and the clocks and counters that are read in it.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>

#include "simulator/keyboard_options.h"
#include "simulator/package.h"
#include "simulator/tablet.h"

namespace bench {

// What a child measured; what it did not measure is 0.
struct Figures {
  bool done = false;  // what was to be measured has happened
  double processorSeconds = 0;
  double wallSeconds = 0;
  double virtualSeconds = 0;
  double peakBytes = 0;   // the service's own memory
  double askedBytes = 0;  // in all its requests for memory
  double keptBytes = 0;   // of its memory, afterwards compared with before
  double calls = 0;       // of the platform
};

// Measures in a child process, one tablet each, with standard output silenced. Stops the benchmark
// with an error when the child does not come to `done`.
Figures InChild(benchmark::State& state, const std::function<void(Figures&)>& measure);

// Runs InChild as often as the benchmark asks for, with the processor time as its time, and hands
// back the last figures.
Figures RunManually(benchmark::State& state, const std::function<void(Figures&)>& measure);

// From its making on: processor time of the whole process, wall time, the service's memory and its
// platform calls.
class Meter {
 public:
  explicit Meter(simulator::Tablet& tablet);

  void Stop(Figures& figures) const;

 private:
  simulator::Tablet& tablet_;
  std::size_t bytesBefore_;
  std::size_t askedBefore_;
  u64 callsBefore_;
  double processorBefore_;
  double wallBefore_;
};

// A package with that much firmware, in elements side by side, and the memory of a keyboard for it:
// sectors beside each other from the usual address on.
simulator::Package PackageOf(u32 firmwareBytes, u32 elements = 2);
std::vector<simulator::FlashRegion> FlashOf(u32 sectors, u32 sectorBytes);

}  // namespace bench
