// A day of the service on which nothing happens, after an update.

#include "bench/measure.h"
#include "simulator/virtual_keyboard.h"

namespace {

constexpr u64 DayMs = u64{24} * 3600 * 1000;

void IdleDay(benchmark::State& state) {
  const bench::Figures day = bench::RunManually(state, [](bench::Figures& figures) {
    simulator::Tablet& tablet = *new simulator::Tablet({});
    const simulator::Package package = bench::PackageOf(128 * 1024);
    auto& keyboard = *new simulator::VirtualKeyboard(tablet.machine(), {});
    tablet.InstallPackage(package.fileName, package.bytes);
    tablet.LogOnUser();
    keyboard.Attach();
    const bench::Meter life(tablet);
    tablet.StartService();
    figures.done = tablet.PassTimeUntil(
        [&] { return keyboard.runningVersion() == package.version; }, 3'600'000);
    tablet.PassTime(60'000);
    life.Stop(figures);
    const double kept = figures.keptBytes;

    const bench::Meter idle(tablet);
    tablet.PassTime(DayMs);
    idle.Stop(figures);
    figures.keptBytes = kept;
    tablet.Remove();
  });
  state.counters["platform_calls"] = day.calls;
  state.counters["bytes_kept_after_update"] = day.keptBytes;
}

BENCHMARK(IdleDay)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
