// The whole DFU session against a device whose every reply comes from the fuzzer: descriptors, map
// strings, status reads, refused and vanished transfers, an unplug at any time.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "common/package_values.h"
#include "dfuengine/device_removals.h"
#include "dfuengine/operation_registry.h"
#include "dfuengine/update_session.h"
#include "dfufile/image_registry.h"
#include "fuzz/fuzz_tablet.h"
#include "service/package_location.h"
#include "service/update_decision.h"
#include "simulator/package.h"
#include "simulator/virtual_keyboard.h"

namespace {

constexpr int MostTicks = 40;
constexpr DWORD TickMs = 3000;

// Deals out the input; an input that has been used up leaves the device to itself.
class Script {
 public:
  Script(const uint8_t* data, size_t size) : at_(data), left_(size) {}

  bool empty() const { return left_ == 0; }

  uint8_t Next() {
    if (left_ == 0) {
      return 0;
    }
    --left_;
    return *at_++;
  }

 private:
  const uint8_t* at_;
  size_t left_;
};

platform::UsbReply Reply(const WINUSB_SETUP_PACKET& setup, Script& script) {
  platform::UsbReply reply;
  const uint8_t kind = script.Next() % 16;
  if (kind < 3) {
    reply.result = kind == 0   ? platform::UsbResult::Stalled
                   : kind == 1 ? platform::UsbResult::TimedOut
                               : platform::UsbResult::Vanished;
    return reply;
  }
  if ((setup.RequestType & 0x80) != 0) {
    const std::size_t length = kind == 3 ? script.Next() : setup.Length;
    for (std::size_t i = 0; i < length && i < setup.Length && !script.empty(); ++i) {
      reply.data.push_back(script.Next());
    }
  }
  return reply;
}

simulator::VirtualKeyboard& Keyboard() {
  static simulator::VirtualKeyboard& keyboard = *[] {
    simulator::KeyboardOptions options;
    options.flash = {{simulator::DefaultFlashAddress, {{4, 1024}, {2, 4096}}}};
    options.firmware = {{simulator::DefaultFlashAddress, 700}};
    return new simulator::VirtualKeyboard(FuzzTablet().machine(), options);
  }();
  return keyboard;
}

void InstallPackage() {
  static const bool installed = [] {
    simulator::Package package = simulator::DefaultPackage({1, 2, 2, 1});
    package.contents.targets[0].elements = simulator::BuildKeyboardImage(
        package.version,
        {{simulator::DefaultFlashAddress, 2100}, {simulator::DefaultFlashAddress + 4096, 1500}});
    package.bytes = simulator::BuildDfuSe(package.contents);
    FuzzTablet().InstallPackage(package.fileName, package.bytes);
    SelectPackageFolder();
    return true;
  }();
  if (!installed) {
    std::abort();
  }
}

// The keyboard is gone: whatever ran must come to its end.
void EndSession() {
  Keyboard().Detach();
  Keyboard().Intercept(nullptr);
  NoteDfuRemoval();
  for (int tick = 0; currentOperationId != 0; ++tick) {
    if (tick > MostTicks) {
      std::abort();
    }
    FuzzTablet().PassTime(u64{TickMs} * 10'000);
    SessionStep();
  }
  TakeRememberedArrival();
}

// After a failed erase the firmware image, and after a failed launch the erase list too, wait for
// the next preparation to release them.
bool ImagesAreFew() {
  int count = 0;
  for (const DfuImage* image = dfuImageRegistry.First(); image != nullptr;
       image = dfuImageRegistry.Next(*image)) {
    ++count;
  }
  return count <= 2;
}

void CheckNothingLeft() {
  platform::Machine& machine = FuzzTablet().machine();
  const bool clean = machine.faults.All().empty() && machine.heap.OpenBlocks() == 0 &&
                     machine.handles.OpenCount(platform::HandleKind::WinUsb) == 0 &&
                     machine.handles.OpenCount(platform::HandleKind::Thread) == 0 &&
                     machine.handles.OpenCount(platform::HandleKind::File) == 0 && ImagesAreFew();
  if (!clean) {
    for (const std::string& fault : machine.faults.All()) {
      std::fprintf(stderr, "%s\n", fault.c_str());
    }
    std::abort();
  }
  machine.debugLog.Clear();
  machine.notifications.events.Clear();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzTablet();
  InstallPackage();
  Script script(data, size);
  const uint8_t honestTransfers = script.Next();
  uint8_t seen = 0;
  Keyboard().AttachInDfuMode();
  Keyboard().Intercept([&](const WINUSB_SETUP_PACKET& setup,
                           const platform::Bytes&) -> std::optional<platform::UsbReply> {
    if (seen < honestTransfers) {
      ++seen;
      return std::nullopt;
    }
    if (script.empty() || script.Next() % 4 == 0) {
      return std::nullopt;
    }
    return Reply(setup, script);
  });

  PrepareDfuUpdate();
  for (int tick = 0; tick < MostTicks && currentOperationId != 0; ++tick) {
    FuzzTablet().PassTime(TickMs);
    SessionStep();
  }
  EndSession();
  CheckNothingLeft();
  return 0;
}
