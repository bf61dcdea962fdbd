#include "bench/measure.h"

#include <ctime>

#include "platform/machine/machine.h"
#include "simulator/host_process.h"
#include "simulator/product_memory.h"

namespace bench {

namespace {

double Seconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace

Figures InChild(benchmark::State& state, const std::function<void(Figures&)>& measure) {
  static Figures& figures = simulator::MakeShared<Figures>();
  figures = {};
  const std::string end = simulator::RunInChild([&] {
    simulator::SilenceStandardOutput();
    measure(figures);
  });
  if (!end.empty() || !figures.done) {
    const std::string why = "what was to be measured did not happen " + end;
    state.SkipWithError(why.c_str());
  }
  return figures;
}

Figures RunManually(benchmark::State& state, const std::function<void(Figures&)>& measure) {
  Figures last;
  for (auto _ : state) {
    last = InChild(state, measure);
    state.SetIterationTime(last.processorSeconds);
    if (!last.done) {
      break;
    }
  }
  return last;
}

Meter::Meter(simulator::Tablet& tablet)
    : tablet_(tablet),
      bytesBefore_(simulator::ProductMemory().bytes),
      askedBefore_(simulator::ProductMemory().asked),
      callsBefore_(tablet.machine().gate.total()),
      processorBefore_(Seconds(CLOCK_PROCESS_CPUTIME_ID)),
      wallBefore_(Seconds(CLOCK_MONOTONIC)) {
  simulator::ForgetMemoryPeak();
}

void Meter::Stop(Figures& figures) const {
  figures.processorSeconds = Seconds(CLOCK_PROCESS_CPUTIME_ID) - processorBefore_;
  figures.wallSeconds = Seconds(CLOCK_MONOTONIC) - wallBefore_;
  figures.virtualSeconds = static_cast<double>(tablet_.nowMs()) / 1000;
  const simulator::MemoryFigures memory = simulator::ProductMemory();
  figures.peakBytes = static_cast<double>(memory.peak - bytesBefore_);
  figures.askedBytes = static_cast<double>(memory.asked - askedBefore_);
  figures.keptBytes = static_cast<double>(memory.bytes) - static_cast<double>(bytesBefore_);
  figures.calls = static_cast<double>(tablet_.machine().gate.total() - callsBefore_);
}

simulator::Package PackageOf(u32 firmwareBytes, u32 elements) {
  simulator::Package package = simulator::DefaultPackage({1, 2, 2, 1});
  const simulator::DfuSeElement whole = simulator::BuildKeyboardImage(
      package.version, {{simulator::DefaultFlashAddress, firmwareBytes}})[0];
  std::vector<simulator::DfuSeElement>& parts = package.contents.targets[0].elements;
  parts.clear();
  for (u32 i = 0; i < elements; ++i) {
    const u32 begin = static_cast<u32>(u64{firmwareBytes} * i / elements);
    const u32 end = static_cast<u32>(u64{firmwareBytes} * (i + 1) / elements);
    parts.push_back(
        {whole.address + begin, {whole.data.begin() + begin, whole.data.begin() + end}});
  }
  package.bytes = simulator::BuildDfuSe(package.contents);
  return package;
}

std::vector<simulator::FlashRegion> FlashOf(u32 sectors, u32 sectorBytes) {
  return {{simulator::DefaultFlashAddress, {{sectors, sectorBytes}}}};
}

}  // namespace bench
