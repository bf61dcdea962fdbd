// How the keyboard looks to the machine, and what it answers: reports and strings as a keyboard,
// control transfers as a DFU device.
#include <algorithm>
#include <memory>

#include "platform/machine/machine.h"
#include "simulator/dfu_descriptors.h"
#include "simulator/hid_side.h"
#include "simulator/virtual_keyboard.h"

namespace simulator {

using platform::Bytes;
using platform::Device;
using platform::UsbReply;
using platform::UsbResult;

namespace {

constexpr u8 EnterDfuReportId = 0x17;
constexpr u8 EnterDfuCommand = 0x01;

}  // namespace

// ---- What the machine sees ----

// The machine holds the back-ends as long as a path or a handle leads to them, which may be longer
// than the keyboard is attached. So each asks the keyboard what it is now.
class VirtualKeyboard::Collection : public platform::HidBackEnd {
 public:
  Collection(VirtualKeyboard& keyboard, std::size_t index) : keyboard_(keyboard), index_(index) {}

  bool ReadProductString(std::u16string& text) override {
    return keyboard_.ReadProductString(index_, text);
  }
  bool TakeOutputReport(const Bytes& report) override {
    return keyboard_.TakeOutputReport(index_, report);
  }

 private:
  VirtualKeyboard& keyboard_;
  const std::size_t index_;
};

class VirtualKeyboard::DfuDevice : public platform::UsbBackEnd {
 public:
  explicit DfuDevice(VirtualKeyboard& keyboard) : keyboard_(keyboard) {}

  UsbReply Transfer(const WINUSB_SETUP_PACKET& setup, const Bytes& data) override {
    return keyboard_.Transfer(setup, data);
  }
  bool QueryInterfaceSettings(u8 index, USB_INTERFACE_DESCRIPTOR& settings) override {
    return keyboard_.QuerySettings(index, settings);
  }

 private:
  VirtualKeyboard& keyboard_;
};

// Made anew at each attachment, as Windows does: what it had before is gone with its handles.
std::vector<Device> VirtualKeyboard::MakeDevices() {
  if (mode_ == KeyboardMode::Dfu) {
    return {MakeDfuDevice(options_, std::make_shared<DfuDevice>(*this))};
  }
  return MakeHidDevices(
      {options_.vendorId, options_.productId, options_.unit}, options_.collections,
      [this](std::size_t index) { return std::make_shared<Collection>(*this, index); });
}

// ---- What it answers ----

// Asked over the wire each time: a handle to a keyboard that has left gets nothing.
bool VirtualKeyboard::ReadProductString(std::size_t collection, std::u16string& text) {
  const std::scoped_lock lock(lock_);
  if (!running_.has_value() || collection >= options_.collections.size() ||
      options_.collections[collection].refusesProductString) {
    return false;
  }
  text = options_.collections[collection].productString.value_or(ProductStringOf(*running_));
  return true;
}

bool VirtualKeyboard::TakeOutputReport(std::size_t collection, const Bytes& report) {
  u64 detachDelayMs = 0;
  {
    const std::scoped_lock lock(lock_);
    if (mode_ != KeyboardMode::Normal || collection >= options_.collections.size()) {
      return false;
    }
    // Windows hands a report to the collection whose handle was used. Firmware listens at the
    // vendor's one.
    const HidCollectionOptions& taker = options_.collections[collection];
    if (taker.usagePage != 1 || taker.usage != 0 || report.size() < 2 ||
        report[0] != EnterDfuReportId || report[1] != EnterDfuCommand) {
      return false;
    }
    ++enterDfuReports_;
    if (options_.refusedReports > 0) {
      --options_.refusedReports;
      return false;
    }
    // The answer to the report is on its way before the keyboard leaves, unless the delay is 0.
    detachDelayMs = options_.detachDelayMs;
  }
  Restart(detachDelayMs, true);
  return true;
}

// Counts the work that the keyboard is sent. Empty unless something is to go wrong with it; what
// the bootloader alone can do about it is left to it.
std::optional<DeviceFault> VirtualKeyboard::MeetFault(const WINUSB_SETUP_PACKET& setup,
                                                      const Bytes& data) {
  const bool isDownload =
      mode_ == KeyboardMode::Dfu && IsClassRequest(setup, DfuDnload) && !data.empty();
  const bool isErase = isDownload && setup.Value == 0 && data[0] == EraseCommand;
  const bool isBlock = isDownload && setup.Value != 0;
  erases_ += isErase ? 1 : 0;
  blocks_ += isBlock ? 1 : 0;
  for (const DeviceFault& fault : faults_) {
    if ((isErase && fault.atErase && fault.number == erases_) ||
        (isBlock && !fault.atErase && fault.number == blocks_)) {
      bootloader_.Spoil(fault.isPulled ? DeviceFault{} : fault);
      return fault;
    }
  }
  return std::nullopt;
}

UsbReply VirtualKeyboard::Transfer(const WINUSB_SETUP_PACKET& setup, const Bytes& data) {
  const u64 nowMs = machine_.scheduler.NowMs();
  Interceptor interceptor;
  {
    const std::scoped_lock lock(lock_);
    interceptor = interceptor_;
  }
  // Without the lock: the interceptor may pull the keyboard.
  if (interceptor) {
    if (std::optional<UsbReply> reply = interceptor(setup, data)) {
      return *reply;
    }
  }

  UsbReply reply{UsbResult::Vanished, {}};
  std::optional<DeviceFault> fault;
  bool leaves = false;
  u64 leaveDelayMs = 0;
  {
    const std::scoped_lock lock(lock_);
    fault = MeetFault(setup, data);
    if (!fault.has_value() || !fault->isPulled) {
      reply = Answer(setup, data, nowMs);
      leaves = bootloader_.TakeLeave();
      leaveDelayMs = options_.leaveDelayMs;
    }
  }
  if (fault.has_value() && fault->isPulled) {
    PullFor(fault->milliseconds, false);
    return reply;
  }
  if (leaves) {
    Restart(leaveDelayMs, false);
  }
  return reply;
}

UsbReply VirtualKeyboard::Answer(const WINUSB_SETUP_PACKET& setup, const Bytes& data, u64 nowMs) {
  UsbReply reply{UsbResult::Stalled, {}};
  const bool isClassRequest = IsClassRequest(setup);
  if (mode_ != KeyboardMode::Dfu) {
    // Requests of the DFU class that reach a keyboard in normal mode are somebody's mistake; it
    // refuses them and counts.
    strayDfuRequests_ += (isClassRequest && mode_ == KeyboardMode::Normal) ? 1 : 0;
    return reply;
  }

  if (isClassRequest && setup.Index == 0) {
    reply = bootloader_.Request(setup, data, nowMs);
  } else if (setup.RequestType == StandardToHost && setup.Request == GetDescriptorRequest) {
    reply = AnswerDescriptor(options_, setup);
    // WinUSB turns the selection of an alternate setting into this request. One that does not exist
    // is stalled.
  } else if (setup.Request == SetInterfaceRequest) {
    const auto isSelected = [&](const AlternateSettingOptions& setting) {
      return setting.number == setup.Value;
    };
    reply.result = std::any_of(options_.alternateSettings.begin(), options_.alternateSettings.end(),
                               isSelected)
                       ? UsbResult::Done
                       : UsbResult::Stalled;
  }
  // Enumeration is over and Windows has told everybody, but the bootloader is still busy with
  // itself. A host waits for the answer.
  if (nowMs < silentUntilMs_) {
    reply.delayMs = static_cast<u32>(silentUntilMs_ - nowMs);
  }
  return reply;
}

bool VirtualKeyboard::QuerySettings(std::size_t index, USB_INTERFACE_DESCRIPTOR& settings) const {
  const std::scoped_lock lock(lock_);
  const std::optional<USB_INTERFACE_DESCRIPTOR> found = SettingDescriptor(options_, index);
  settings = found.value_or(settings);
  return found.has_value();
}

}  // namespace simulator
