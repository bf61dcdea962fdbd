// Whole updates: firmware of growing size, and a device and package at the format's limits.

#include <algorithm>
#include <ctime>

#include "bench/measure.h"
#include "dfuengine/operation_registry.h"
#include "dfuengine/update_session.h"
#include "service/package_location.h"
#include "service/update_decision.h"
#include "simulator/virtual_keyboard.h"

namespace {

struct Work {
  u32 firmwareBytes;
  u32 elements;
  std::vector<simulator::FlashRegion> flash;
  std::string mapText;
  u32 eraseMs = 150;
};

simulator::KeyboardOptions OptionsFor(const Work& work) {
  simulator::KeyboardOptions options;
  options.flash = work.flash;
  options.bootloader.transferSize = 4096;
  if (!work.mapText.empty()) {
    options.alternateSettings[0].mapString = work.mapText;
  }
  return options;
}

void Update(const Work& work, bench::Figures& figures) {
  simulator::Tablet& tablet = *new simulator::Tablet({});
  const simulator::Package package = bench::PackageOf(work.firmwareBytes, work.elements);
  auto& keyboard = *new simulator::VirtualKeyboard(tablet.machine(), OptionsFor(work));
  tablet.InstallPackage(package.fileName, package.bytes);
  tablet.LogOnUser();
  keyboard.Attach();

  const bench::Meter meter(tablet);
  tablet.StartService();
  constexpr u64 MostMs = u64{7} * 24 * 3600 * 1000;
  tablet.PassTimeUntil([&] { return keyboard.runningVersion() == package.version; }, MostMs);
  meter.Stop(figures);
  figures.done = keyboard.FlashHolds(package.contents.targets[0].elements);
  tablet.Remove();
}

double ThreadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// The calls that hold the update lock, made one after the other as an arrival and the ticks make
// them; the longest one counts.
void HoldLock(const Work& work, bench::Figures& figures) {
  simulator::Tablet& tablet = *new simulator::Tablet({});
  const simulator::Package package = bench::PackageOf(work.firmwareBytes, work.elements);
  auto& keyboard = *new simulator::VirtualKeyboard(tablet.machine(), OptionsFor(work));
  tablet.InstallPackage(package.fileName, package.bytes);
  tablet.LogOnUser();
  keyboard.AttachInDfuMode();
  SelectPackageFolder();
  FindPackageDfuFile();

  const auto measure = [&](void (*call)()) {
    const double start = ThreadSeconds();
    call();
    figures.processorSeconds = std::max(figures.processorSeconds, ThreadSeconds() - start);
  };
  measure(PrepareDfuUpdate);
  while (currentOperationId != 0) {
    tablet.PassTime(3000);
    measure(SessionStep);
  }
  tablet.PassTime(10'000);
  figures.done = keyboard.runningVersion() == package.version;
  tablet.Remove();
}

void Report(benchmark::State& state, const bench::Figures& figures, u32 firmwareBytes) {
  state.counters["virtual_s"] = figures.virtualSeconds;
  state.counters["calls"] = figures.calls;
  state.counters["peak_KiB"] = figures.peakBytes / 1024;
  state.counters["peak/firmware"] = figures.peakBytes / firmwareBytes;
  state.counters["asked/firmware"] = figures.askedBytes / firmwareBytes;
}

Work FirmwareOf(u32 bytes, u32 elements) {
  return {bytes, elements, bench::FlashOf(bytes / 65'536 + 1, 65'536), ""};
}

// 64 KiB of firmware on a device that claims a number of sectors of 1 KiB.
Work SectorsOf(u32 sectors) {
  return {64 * 1024, 2, bench::FlashOf(sectors, 1024),
          "@Flash/0x08000000/" + std::to_string(sectors) + "*001Kg"};
}

void Measure(benchmark::State& state, const Work& work) {
  Report(state, bench::RunManually(state, [&](bench::Figures& f) { Update(work, f); }),
         work.firmwareBytes);
}

void WholeUpdate(benchmark::State& state) {
  Measure(state, FirmwareOf(static_cast<u32>(state.range(0)) * 1024, 2));
  state.SetComplexityN(state.range(0));
}

void ManySectors(benchmark::State& state) {
  Measure(state, SectorsOf(static_cast<u32>(state.range(0))));
}

// 16 MiB of firmware in a number of elements, on sectors of 64 KiB.
void ManyElements(benchmark::State& state) {
  Measure(state, FirmwareOf(16 << 20, static_cast<u32>(state.range(0))));
}

void LockHeldForSectors(benchmark::State& state) {
  const Work work = SectorsOf(static_cast<u32>(state.range(0)));
  bench::RunManually(state, [&](bench::Figures& figures) { HoldLock(work, figures); });
}

void LockHeldForElements(benchmark::State& state) {
  const Work work = FirmwareOf(16 << 20, static_cast<u32>(state.range(0)));
  bench::RunManually(state, [&](bench::Figures& figures) { HoldLock(work, figures); });
}

void InMilliseconds(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(0.2);
}

BENCHMARK(WholeUpdate)
    ->ArgName("KiB")
    ->RangeMultiplier(4)
    ->Range(64, 16'384)
    ->Apply(InMilliseconds)
    ->Complexity(benchmark::oN);
BENCHMARK(ManySectors)->Arg(1000)->Arg(60'000)->Apply(InMilliseconds);
BENCHMARK(ManyElements)->Arg(1000)->Arg(60'000)->Apply(InMilliseconds);
BENCHMARK(LockHeldForSectors)->Arg(1000)->Arg(60'000)->Apply(InMilliseconds);
BENCHMARK(LockHeldForElements)->Arg(2)->Arg(60'000)->Apply(InMilliseconds);

}  // namespace
