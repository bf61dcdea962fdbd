// What needs no machine: the checksum, memory maps, and the cuts with elements and sectors growing
// together.

#include <zlib.h>

#include <string>

#include "bench/measure.h"
#include "common/status.h"
#include "dfudevice/memory_map_parser.h"
#include "dfufile/crc32.h"
#include "dfufile/image_cuts.h"
#include "dfufile/image_registry.h"
#include "dfufile/operation_codes.h"

namespace {

constexpr u32 SectorBytes = 1024;

// The checksum, beside that of a library that everybody has.
void Checksum(benchmark::State& state) {
  const std::vector<u8> bytes(static_cast<std::size_t>(state.range(0)), 0x5A);
  for (auto _ : state) {
    benchmark::DoNotOptimize(ExtendCrc32(Crc32Start, bytes.data(), bytes.size()));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void ChecksumOfZlib(benchmark::State& state) {
  const std::vector<u8> bytes(static_cast<std::size_t>(state.range(0)), 0x5A);
  for (auto _ : state) {
    benchmark::DoNotOptimize(crc32(0, bytes.data(), static_cast<uInt>(bytes.size())));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

MemoryMap MapOf(u32 sectors) {
  const std::string text = "@Flash/0x08000000/" + std::to_string(sectors) + "*001Kg";
  MemoryMap map{};
  ParseMemoryMap(text.data(), text.size(), map);
  return map;
}

void DecodeMap(benchmark::State& state) {
  for (auto _ : state) {
    const MemoryMap map = MapOf(static_cast<u32>(state.range(0)));
    benchmark::DoNotOptimize(map.sectors);
    delete[] map.sectors;
  }
  state.SetComplexityN(state.range(0));
}

// An element for each sector, at its start.
DfuImage* ImageOf(u32 elements) {
  auto* image = new DfuImage(0, 0, nullptr);
  for (u32 i = 0; i < elements; ++i) {
    image->Elements.InsertWithBytes(i, 0x08000000 + i * SectorBytes, SectorBytes / 2);
  }
  RegisterImage(&image);
  return image;
}

void Cut(benchmark::State& state, u32 operationCode) {
  const u32 count = static_cast<u32>(state.range(0));
  const MemoryMap map = MapOf(count);
  for (auto _ : state) {
    state.PauseTiming();
    DfuImage* image = ImageOf(count);
    state.ResumeTiming();
    if (FitImageToMemoryMap(image, &map, operationCode) != StatusSuccess ||
        image->Elements.size() != count) {
      state.SkipWithError("the cut failed");
    }
    state.PauseTiming();
    ReleaseImage(&image);
    state.ResumeTiming();
  }
  delete[] map.sectors;
  state.SetComplexityN(state.range(0));
}

void CutToErase(benchmark::State& state) {
  Cut(state, OperationErase);
}

void CutToDownload(benchmark::State& state) {
  Cut(state, OperationDownload);
}

// The blank image of a leave, made and cut.
void CutToLeave(benchmark::State& state) {
  const MemoryMap map = MapOf(static_cast<u32>(state.range(0)));
  for (auto _ : state) {
    DfuImage* image = nullptr;
    if (BlankImageFromMemoryMap(&image, &map) != StatusSuccess ||
        FitImageToMemoryMap(image, &map, OperationLeave) != StatusSuccess) {
      state.SkipWithError("the cut failed");
    }
    ReleaseImage(&image);
  }
  delete[] map.sectors;
  state.SetComplexityN(state.range(0));
}

void Growing(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(10)->Arg(100)->Arg(1000)->Arg(10'000)->Arg(60'000);
  benchmark->Unit(benchmark::kMillisecond)->Complexity();
}

BENCHMARK(Checksum)->Arg(1 << 20);
BENCHMARK(ChecksumOfZlib)->Arg(1 << 20);
BENCHMARK(DecodeMap)->Apply(Growing);
BENCHMARK(CutToErase)->Apply(Growing);
BENCHMARK(CutToDownload)->Apply(Growing);
BENCHMARK(CutToLeave)->Apply(Growing);

}  // namespace
