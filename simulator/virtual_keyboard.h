// The keyboard of a simulated machine: HID collections in normal mode, a DFU device in DFU mode,
// and the restarts between the two.
//
// The script plugs it in and out; from then on it reacts to what the service sends, on the
// service's threads, and restarts on a machine thread of its own. What became of an update is read
// here, from the flash and from the product string. Any thread may call. A keyboard is never
// destroyed while the machine is on.
#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/machine/device_backend.h"
#include "simulator/dfu_bootloader.h"
#include "simulator/keyboard_options.h"

namespace platform {
struct Device;
class Machine;
}  // namespace platform

namespace simulator {

// What a person at the tablet could tell about it.
enum class KeyboardMode {
  Detached,    // not plugged in
  Restarting,  // plugged in, but the machine does not see it
  Normal,
  Dfu,
};

class VirtualKeyboard {
 public:
  // With the options' firmware in its flash.
  VirtualKeyboard(platform::Machine& machine, const KeyboardOptions& options);
  VirtualKeyboard(const VirtualKeyboard&) = delete;
  VirtualKeyboard& operator=(const VirtualKeyboard&) = delete;

  // --- The hand that plugs ---

  // Powers up: runs the firmware when the flash holds a whole image, else stays in DFU mode. One
  // that is plugged in already starts anew.
  void Attach();

  // Powers up in DFU mode whatever the flash holds.
  void AttachInDfuMode();

  // Pulls the keyboard, whatever it is doing. A write or an erase under way is broken off, and a
  // return that was on its way does not happen.
  void Detach();

  // Pulls the keyboard now and plugs it in again after that time, on a thread of the machine.
  void PullFor(u64 milliseconds, bool backInDfuMode);

  // --- Knobs ---

  // Changes the options from now on, with the lock held: change must not call the keyboard. What
  // has to do with devices and paths shows when it is attached next.
  void Change(const std::function<void(KeyboardOptions&)>& change);

  // See DfuBootloader::ScriptStatus.
  void ScriptStatus(const DfuStatusReply& reply);
  void ForgetScript();

  // Lets it happen when its place comes.
  void AddFault(const DeviceFault& fault);

  // Asked first about every transfer in DFU mode; an empty answer leaves it to the keyboard. Called
  // with no lock held.
  using Interceptor = std::function<std::optional<platform::UsbReply>(
      const WINUSB_SETUP_PACKET& setup, const platform::Bytes& data)>;
  void Intercept(Interceptor interceptor);

  // --- The verdict ---

  KeyboardMode mode() const;

  // The version that its product string tells; empty unless it runs its firmware.
  std::optional<KeyboardVersion> runningVersion() const;

  // A copy of the flash, and another content for all of it. What runs goes on running: the firmware
  // is looked for at the next power-up.
  NorFlash ReadFlash() const;
  void WriteFlash(const NorFlash& flash);

  // Whether the flash holds the elements byte for byte.
  bool FlashHolds(const std::vector<DfuSeElement>& elements) const;

  BootloaderCounts counts() const;

  // Reports that asked it into DFU mode, those that it refused included.
  u32 enterDfuReports() const;

  // Blocks of data, and erases, that it was sent in DFU mode, whatever became of them.
  u64 blocksSent() const;
  u64 erasesSent() const;

  // DFU requests that came while it was not in DFU mode.
  u32 strayDfuRequests() const;

 private:
  class Collection;
  class DfuDevice;
  using InstanceIds = std::vector<std::u16string>;

  void Boot(bool intoDfu, std::optional<u64> onlyInLife);
  std::optional<u64> Unplug(KeyboardMode mode, std::optional<u64> onlyInLife);
  void EnableInOrder(const std::vector<std::u16string>& paths, u64 gapMs, u64 life);
  bool IsInLife(u64 life) const;
  void Restart(u64 detachAfterMs, bool intoDfu);
  void BootAfter(u64 milliseconds, bool intoDfu, u64 life);
  std::optional<KeyboardVersion> FindVersion() const;
  std::vector<platform::Device> MakeDevices();

  std::optional<DeviceFault> MeetFault(const WINUSB_SETUP_PACKET& setup,
                                       const platform::Bytes& data);
  bool ReadProductString(std::size_t collection, std::u16string& text);
  bool TakeOutputReport(std::size_t collection, const platform::Bytes& report);
  platform::UsbReply Transfer(const WINUSB_SETUP_PACKET& setup, const platform::Bytes& data);
  platform::UsbReply Answer(const WINUSB_SETUP_PACKET& setup, const platform::Bytes& data,
                            u64 nowMs);
  bool QuerySettings(std::size_t index, USB_INTERFACE_DESCRIPTOR& settings) const;

  platform::Machine& machine_;
  mutable std::mutex lock_;  // guards all that follows
  KeyboardOptions options_;
  NorFlash flash_;
  DfuBootloader bootloader_;
  Interceptor interceptor_;
  KeyboardMode mode_ = KeyboardMode::Detached;
  std::optional<KeyboardVersion> running_;
  InstanceIds attached_;
  u64 life_ = 0;  // counts power-ups and pulls, so that a late restart knows that it is late
  u64 silentUntilMs_ = 0;
  std::vector<DeviceFault> faults_;
  u64 blocks_ = 0;  // that it was sent, and so the erases
  u64 erases_ = 0;
  u32 enterDfuReports_ = 0;
  u32 strayDfuRequests_ = 0;
};

}  // namespace simulator
