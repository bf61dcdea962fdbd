// Whole updates: firmware of growing size, and a device and package at the format's limits.

#include "bench/measure.h"
#include "simulator/virtual_keyboard.h"

namespace {

struct Work {
  u32 firmwareBytes;
  u32 elements;
  std::vector<simulator::FlashRegion> flash;
  std::string mapText;
  u32 eraseMs = 150;
};

void Update(const Work& work, bench::Figures& figures) {
  simulator::Tablet& tablet = *new simulator::Tablet({});
  const simulator::Package package = bench::PackageOf(work.firmwareBytes, work.elements);
  simulator::KeyboardOptions options;
  options.flash = work.flash;
  options.bootloader.transferSize = 4096;
  if (!work.mapText.empty()) {
    options.alternateSettings[0].mapString = work.mapText;
  }
  auto& keyboard = *new simulator::VirtualKeyboard(tablet.machine(), options);
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

void Report(benchmark::State& state, const bench::Figures& figures, u32 firmwareBytes) {
  state.counters["virtual_s"] = figures.virtualSeconds;
  state.counters["calls"] = figures.calls;
  state.counters["peak_KiB"] = figures.peakBytes / 1024;
  state.counters["peak/firmware"] = figures.peakBytes / firmwareBytes;
  state.counters["asked/firmware"] = figures.askedBytes / firmwareBytes;
}

void WholeUpdate(benchmark::State& state) {
  const u32 bytes = static_cast<u32>(state.range(0)) * 1024;
  const Work work = {bytes, 2, bench::FlashOf(bytes / 65'536 + 1, 65'536), ""};
  Report(state, bench::RunManually(state, [&](bench::Figures& f) { Update(work, f); }), bytes);
  state.SetComplexityN(state.range(0));
}

// 64 KiB of firmware on a device that says it has so many sectors of 1 KiB.
void ManySectors(benchmark::State& state) {
  const u32 sectors = static_cast<u32>(state.range(0));
  const u32 bytes = 64 * 1024;
  const Work work = {bytes, 2, bench::FlashOf(sectors, 1024),
                     "@Flash/0x08000000/" + std::to_string(sectors) + "*001Kg"};
  Report(state, bench::RunManually(state, [&](bench::Figures& f) { Update(work, f); }), bytes);
}

// Firmware in many elements, on 64 KiB sectors.
void ManyElements(benchmark::State& state) {
  const u32 bytes = 16 << 20;
  const Work work = {bytes, static_cast<u32>(state.range(0)), bench::FlashOf(257, 65'536), ""};
  Report(state, bench::RunManually(state, [&](bench::Figures& f) { Update(work, f); }), bytes);
}

BENCHMARK(WholeUpdate)
    ->ArgName("KiB")
    ->RangeMultiplier(4)
    ->Range(64, 16'384)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Complexity();
BENCHMARK(ManySectors)->Arg(1000)->Arg(60'000)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(ManyElements)->Arg(1000)->Arg(60'000)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
