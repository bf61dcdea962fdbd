#include "simulator/virtual_keyboard.h"

#include <algorithm>
#include <utility>

#include "platform/machine/machine.h"
#include "simulator/hid_side.h"

namespace simulator {

using platform::Device;

namespace {

std::vector<std::u16string> InstanceIdsOf(const std::vector<Device>& devices) {
  std::vector<std::u16string> ids;
  ids.reserve(devices.size());
  for (const Device& device : devices) {
    ids.push_back(device.instanceId);
  }
  return ids;
}

}  // namespace

VirtualKeyboard::VirtualKeyboard(platform::Machine& machine, const KeyboardOptions& options)
    : machine_(machine),
      options_(options),
      flash_(options.flash),
      bootloader_(flash_, options_.bootloader) {
  // As it left the factory: firmware in an otherwise erased flash.
  for (const DfuSeElement& element : BuildKeyboardImage(options.version, options.firmware)) {
    flash_.Program(element.address, element.data);
  }
}

// ---- Plugging and restarting ----

void VirtualKeyboard::Attach() {
  Boot(false, std::nullopt);
}

void VirtualKeyboard::AttachInDfuMode() {
  Boot(true, std::nullopt);
}

// Whatever it is doing: a hand asks nobody.
void VirtualKeyboard::Detach() {
  Unplug(KeyboardMode::Detached, std::nullopt);
}

// A keyboard that was in DFU mode mostly has half a firmware by then, so it is for the caller to
// say how it comes back.
void VirtualKeyboard::PullFor(u64 milliseconds, bool backInDfuMode) {
  const std::optional<u64> life = Unplug(KeyboardMode::Detached, std::nullopt);
  BootAfter(milliseconds, backInDfuMode, *life);
}

void VirtualKeyboard::Boot(bool intoDfu, std::optional<u64> onlyInLife) {
  const u64 nowMs = machine_.scheduler.NowMs();
  std::vector<Device> devices;
  std::vector<std::u16string> heldBack;
  InstanceIds replaced;
  u64 life = 0;
  u64 gapMs = 0;
  {
    const std::scoped_lock lock(lock_);
    if (onlyInLife.has_value() && *onlyInLife != life_) {
      return;
    }
    life = ++life_;
    bootloader_.LosePower(nowMs);
    bootloader_.Reset();
    // A bootloader starts the firmware that it finds whole, and else waits to be given one.
    running_ = intoDfu ? std::nullopt : FindVersion();
    mode_ = running_.has_value() ? KeyboardMode::Normal : KeyboardMode::Dfu;
    silentUntilMs_ = nowMs + options_.silentMs;
    devices = MakeDevices();
    if (mode_ == KeyboardMode::Normal && !options_.arrivalOrder.empty()) {
      heldBack = HoldBackInterfaces(devices, options_.arrivalOrder);
      gapMs = options_.arrivalGapMs;
    }
    replaced = std::exchange(attached_, InstanceIdsOf(devices));
  }
  // Outside the lock: Windows calls the service back on the way, which asks the keyboard.
  machine_.devices.Detach(replaced);
  machine_.devices.Attach(devices);
  EnableInOrder(heldBack, gapMs, life);

  // Threads that run at once may have pulled it in the meantime.
  InstanceIds outdated = InstanceIdsOf(devices);
  {
    const std::scoped_lock lock(lock_);
    std::erase_if(outdated, [&](const std::u16string& id) {
      return std::find(attached_.begin(), attached_.end(), id) != attached_.end();
    });
  }
  machine_.devices.Detach(outdated);
}

// The first one comes at once, on the calling thread.
void VirtualKeyboard::EnableInOrder(const std::vector<std::u16string>& paths, u64 gapMs, u64 life) {
  if (paths.empty()) {
    return;
  }
  machine_.devices.Enable(paths[0]);
  machine_.scheduler.Spawn("keyboard arriving", platform::ThreadOwner::Machine, false,
                           [this, paths, gapMs, life]() -> u32 {
                             for (std::size_t i = 1; i < paths.size(); ++i) {
                               machine_.scheduler.SleepMs(gapMs);
                               if (IsInLife(life)) {
                                 machine_.devices.Enable(paths[i]);
                               }
                             }
                             return 0;
                           });
}

// A pull and a return may overtake what an earlier life still has to do.
bool VirtualKeyboard::IsInLife(u64 life) const {
  const std::scoped_lock lock(lock_);
  return life == life_;
}

// The life that begins with it; empty when the keyboard has gone on in the meantime.
std::optional<u64> VirtualKeyboard::Unplug(KeyboardMode mode, std::optional<u64> onlyInLife) {
  const u64 nowMs = machine_.scheduler.NowMs();
  InstanceIds left;
  u64 life = 0;
  {
    const std::scoped_lock lock(lock_);
    if (onlyInLife.has_value() && *onlyInLife != life_) {
      return std::nullopt;
    }
    life = ++life_;
    mode_ = mode;
    bootloader_.LosePower(nowMs);
    // Without power nothing runs; what the flash holds stays.
    running_ = std::nullopt;
    left = std::exchange(attached_, {});
  }
  machine_.devices.Detach(left);
  return life;
}

// Leaves after the delay, at once on the calling thread for 0, and returns after the restart time
// unless the options keep it away.
void VirtualKeyboard::Restart(u64 detachAfterMs, bool intoDfu) {
  u64 life = 0;
  u64 restartMs = 0;
  bool returns = true;
  {
    const std::scoped_lock lock(lock_);
    life = life_;
    restartMs = options_.restartMs;
    returns = !intoDfu || options_.returnsAfterReport;
  }
  const auto leave = [this, life, restartMs, intoDfu, returns] {
    const std::optional<u64> next = Unplug(KeyboardMode::Restarting, life);
    if (next.has_value() && returns) {
      BootAfter(restartMs, intoDfu, *next);
    }
  };
  if (detachAfterMs == 0) {
    leave();
    return;
  }
  // The answer to the last request goes out first. What takes its time in the keyboard is a thread
  // of the machine, for whom it is virtual time.
  machine_.scheduler.Spawn("keyboard leaving", platform::ThreadOwner::Machine, false,
                           [this, detachAfterMs, leave]() -> u32 {
                             machine_.scheduler.SleepMs(detachAfterMs);
                             leave();
                             return 0;
                           });
}

// Between its leaving and its return lie the reset and what Windows needs to enumerate it. Who
// pulls it meanwhile has begun another life, and this return does not happen.
void VirtualKeyboard::BootAfter(u64 milliseconds, bool intoDfu, u64 life) {
  machine_.scheduler.Spawn("keyboard starting", platform::ThreadOwner::Machine, false,
                           [this, milliseconds, intoDfu, life]() -> u32 {
                             machine_.scheduler.SleepMs(milliseconds);
                             Boot(intoDfu, life);
                             return 0;
                           });
}

// ---- Knobs and the verdict ----

void VirtualKeyboard::Change(const std::function<void(KeyboardOptions&)>& change) {
  const std::scoped_lock lock(lock_);
  change(options_);
}

// Told once, by whichever request asks for the status next.
void VirtualKeyboard::ScriptStatus(const DfuStatusReply& reply) {
  const std::scoped_lock lock(lock_);
  bootloader_.ScriptStatus(reply);
}

void VirtualKeyboard::ForgetScript() {
  const std::scoped_lock lock(lock_);
  bootloader_.ForgetScript();
}

void VirtualKeyboard::AddFault(const DeviceFault& fault) {
  const std::scoped_lock lock(lock_);
  faults_.push_back(fault);
}

void VirtualKeyboard::Intercept(Interceptor interceptor) {
  const std::scoped_lock lock(lock_);
  interceptor_ = std::move(interceptor);
}

KeyboardMode VirtualKeyboard::mode() const {
  const std::scoped_lock lock(lock_);
  return mode_;
}

std::optional<KeyboardVersion> VirtualKeyboard::FindVersion() const {
  return options_.findVersion ? options_.findVersion(flash_)
                              : FindKeyboardImage(flash_, options_.imageAddress);
}

std::optional<KeyboardVersion> VirtualKeyboard::runningVersion() const {
  const std::scoped_lock lock(lock_);
  return running_;
}

NorFlash VirtualKeyboard::ReadFlash() const {
  const std::scoped_lock lock(lock_);
  return flash_;
}

void VirtualKeyboard::WriteFlash(const NorFlash& flash) {
  const std::scoped_lock lock(lock_);
  flash_ = flash;
}

// The verdict rests on this: bytes that were read back, not answers that were given.
bool VirtualKeyboard::FlashHolds(const std::vector<DfuSeElement>& elements) const {
  const std::scoped_lock lock(lock_);
  return std::all_of(elements.begin(), elements.end(), [&](const DfuSeElement& element) {
    return flash_.Read(element.address, element.data.size()) == element.data;
  });
}

BootloaderCounts VirtualKeyboard::counts() const {
  const std::scoped_lock lock(lock_);
  return bootloader_.counts();
}

u32 VirtualKeyboard::enterDfuReports() const {
  const std::scoped_lock lock(lock_);
  return enterDfuReports_;
}

u64 VirtualKeyboard::blocksSent() const {
  const std::scoped_lock lock(lock_);
  return blocks_;
}

u64 VirtualKeyboard::erasesSent() const {
  const std::scoped_lock lock(lock_);
  return erases_;
}

u32 VirtualKeyboard::strayDfuRequests() const {
  const std::scoped_lock lock(lock_);
  return strayDfuRequests_;
}

}  // namespace simulator
