// The cost of one whole simulated update: processor time, memory, virtual time.
//
// Each update is a host process of its own, because one process is one life of the service; its
// start is not counted, nor is the set-up of the tablet and the keyboard.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "simulator/host_process.h"
#include "simulator/package.h"
#include "simulator/tablet.h"
#include "simulator/virtual_keyboard.h"

namespace {

struct Figures {
  bool updated = false;
  double processorSeconds = 0;
  double wallSeconds = 0;
  double virtualSeconds = 0;
  double peakKiB = 0;  // above what was in use before the service started
};

double Seconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// A figure of /proc/self/status in KiB.
double ProcessFigure(const char* name) {
  std::FILE* const file = std::fopen("/proc/self/status", "r");
  char line[128];
  double value = 0;
  while (file != nullptr && std::fgets(line, sizeof(line), file) != nullptr) {
    if (std::strncmp(line, name, std::strlen(name)) == 0) {
      value = std::atof(line + std::strlen(name));
    }
  }
  if (file != nullptr) {
    std::fclose(file);
  }
  return value;
}

// Starts the high-water mark of the memory in use anew.
void ResetPeak() {
  if (const int file = open("/proc/self/clear_refs", O_WRONLY); file >= 0) {
    [[maybe_unused]] const auto written = write(file, "5", 1);
    close(file);
  }
}

simulator::Package PackageOf(u32 firmwareBytes) {
  simulator::Package package = simulator::DefaultPackage({1, 2, 2, 1});
  package.contents.targets[0].elements = simulator::BuildKeyboardImage(
      package.version, {{simulator::DefaultFlashAddress, firmwareBytes / 2},
                        {simulator::DefaultFlashAddress + firmwareBytes / 2, firmwareBytes / 2}});
  package.bytes = simulator::BuildDfuSe(package.contents);
  return package;
}

Figures RunUpdate(u32 firmwareBytes) {
  simulator::SilenceStandardOutput();
  simulator::Tablet& tablet = *new simulator::Tablet({});
  const simulator::Package package = PackageOf(firmwareBytes);
  simulator::KeyboardOptions options;
  options.flash = {
      {simulator::DefaultFlashAddress, {{4, 16 * 1024}, {firmwareBytes / (64 * 1024), 64 * 1024}}}};
  auto& keyboard = *new simulator::VirtualKeyboard(tablet.machine(), options);
  tablet.InstallPackage(package.fileName, package.bytes);
  tablet.LogOnUser();
  keyboard.Attach();

  ResetPeak();
  const double before = ProcessFigure("VmRSS:");
  const double processorStart = Seconds(CLOCK_PROCESS_CPUTIME_ID);
  const double wallStart = Seconds(CLOCK_MONOTONIC);
  tablet.StartService();
  tablet.PassTimeUntil([&] { return keyboard.runningVersion() == package.version; }, 3'600'000);

  Figures figures;
  figures.processorSeconds = Seconds(CLOCK_PROCESS_CPUTIME_ID) - processorStart;
  figures.wallSeconds = Seconds(CLOCK_MONOTONIC) - wallStart;
  figures.virtualSeconds = static_cast<double>(tablet.nowMs()) / 1000;
  figures.peakKiB = ProcessFigure("VmHWM:") - before;
  figures.updated = keyboard.FlashHolds(package.contents.targets[0].elements);
  tablet.Remove();
  return figures;
}

Figures RunInChild(u32 firmwareBytes) {
  static Figures& figures = simulator::MakeShared<Figures>();
  figures = {};
  simulator::RunInChild([=] { figures = RunUpdate(firmwareBytes); });
  return figures;
}

void WholeUpdate(benchmark::State& state) {
  Figures last;
  for (auto _ : state) {
    last = RunInChild(static_cast<u32>(state.range(0)) * 1024);
    if (!last.updated) {
      state.SkipWithError("the keyboard was not updated");
      return;
    }
    state.SetIterationTime(last.processorSeconds);
  }
  state.counters["wall_ms"] = last.wallSeconds * 1000;
  state.counters["virtual_s"] = last.virtualSeconds;
  state.counters["peak_KiB"] = last.peakKiB;
}

BENCHMARK(WholeUpdate)->Arg(128)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
