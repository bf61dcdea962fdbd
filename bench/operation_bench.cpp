// What an operation does again and again: publishing and reading its context, and one data block.

#include "bench/measure.h"
#include "dfudevice/dfu_device_list.h"
#include "dfudevice/memory_map.h"
#include "dfuengine/flash_operation.h"
#include "dfufile/dfu_image.h"
#include "simulator/product_memory.h"
#include "simulator/virtual_keyboard.h"

namespace {

constexpr u32 BlockBytes = 4096;
constexpr u32 Rounds = 20'000;

class Operation : public FlashOperation {
 public:
  using FlashOperation::FlashOperation;
  using FlashOperation::OpenDevice;
};

OperationContext ContextFor(DfuImage& image) {
  OperationContext context{};
  context.operationCode = OperationDownload;
  context.image = &image;
  CopyDevicePath(context, memoryMapTable.devicePath);
  return context;
}

// Measures Rounds of the work on an operation whose device is attached, and tells how many of them
// asked for memory.
void Repeat(benchmark::State& state,
            const std::function<bool(Operation&, OperationContext&)>& round) {
  const bench::Figures last = bench::RunManually(state, [&](bench::Figures& figures) {
    simulator::Tablet& tablet = *new simulator::Tablet({});
    simulator::KeyboardOptions options;
    options.bootloader.transferSize = BlockBytes;
    auto& keyboard = *new simulator::VirtualKeyboard(tablet.machine(), options);
    keyboard.AttachInDfuMode();
    figures.done = RefreshDfuDevices() == 1;
    auto& image = *new DfuImage(0, 0, nullptr);
    image.Elements.InsertWithBytes(0, simulator::DefaultFlashAddress, BlockBytes);
    OperationContext context = ContextFor(image);
    auto& operation = *new Operation(context);
    operation.GetContext(context);
    figures.done = figures.done && operation.OpenDevice(context);
    // Answers at once, and has always just taken a block.
    keyboard.Intercept([](const WINUSB_SETUP_PACKET& setup, const platform::Bytes&) {
      platform::UsbReply reply;
      reply.data = setup.Request == DFU_GETSTATUS ? platform::Bytes{0, 0, 0, 0, dfuDNLOAD_IDLE, 0}
                                                  : platform::Bytes{};
      return std::optional(reply);
    });

    const bench::Meter meter(tablet);
    for (u32 i = 0; i < Rounds; ++i) {
      figures.done = round(operation, context) && figures.done;
    }
    meter.Stop(figures);
    figures.processorSeconds /= Rounds;
    tablet.Remove();
  });
  state.counters["calls"] = last.calls / Rounds;
  state.counters["bytes_asked"] = last.askedBytes / Rounds;
}

void PublishContext(benchmark::State& state) {
  Repeat(state, [](Operation& operation, OperationContext& context) {
    operation.SetContext(context);
    return true;
  });
}

void ReadContext(benchmark::State& state) {
  Repeat(state, [](Operation& operation, OperationContext& context) {
    operation.GetContext(context);
    return true;
  });
}

void DataBlock(benchmark::State& state) {
  Repeat(state, [](Operation& operation, OperationContext& context) {
    context.elementIndex = 0;
    context.blockNumber = FirstDataBlock;
    context.length = BlockBytes;
    return operation.SendBlock(context) == 1;
  });
}

BENCHMARK(PublishContext)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(5);
BENCHMARK(ReadContext)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(5);
BENCHMARK(DataBlock)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(5);

}  // namespace
