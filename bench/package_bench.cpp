// Opening a package: prefix, suffix, checksum and the target's image.

#include "bench/measure.h"
#include "common/status.h"
#include "dfufile/dfu_file.h"
#include "service/package_location.h"

namespace {

void OpenPackage(benchmark::State& state) {
  const u32 bytes = static_cast<u32>(state.range(0)) * 1024;
  bench::RunManually(state, [=](bench::Figures& figures) {
    simulator::Tablet& tablet = *new simulator::Tablet({});
    const simulator::Package package = bench::PackageOf(bytes);
    tablet.InstallPackage(package.fileName, package.bytes);
    SelectPackageFolder();
    FindPackageDfuFile();

    const bench::Meter meter(tablet);
    DfuFile* file = nullptr;
    u8 targets = 0;
    DfuImage* image = nullptr;
    figures.done = OpenDfuFile(&file, &targets) == StatusSuccess &&
                   ReadTargetImage(file, 0, &image) == StatusSuccess;
    CloseDfuFile(file);
    meter.Stop(figures);
    tablet.Remove();
  });
  state.SetComplexityN(state.range(0));
  state.SetBytesProcessed(state.iterations() * bytes);
}

BENCHMARK(OpenPackage)
    ->ArgName("KiB")
    ->Arg(64)
    ->Arg(1024)
    ->Arg(16'384)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

}  // namespace
