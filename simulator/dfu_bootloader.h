// The keyboard's bootloader: the state machine of USB Device Firmware Upgrade 1.1 with the DfuSe
// commands, over the keyboard's flash.
//
// It has no clock and no lock: the keyboard that owns it tells it the time and guards it. A request
// that the state does not allow is stalled and ends in dfuERROR, as the standard wants it.
#pragma once

#include <deque>

#include "common/types.h"
#include "platform/machine/device_backend.h"
#include "simulator/nor_flash.h"
#include "simulator/wire_requests.h"

namespace simulator {

struct BootloaderOptions {
  // wTransferSize: the most bytes of a block. Where a block goes follows from its number and this,
  // not from how long the blocks before it were.
  u16 transferSize = 1024;

  // How long an erase keeps the device busy: a time for any sector, and one for each 16 KiB of it.
  u32 eraseBaseMs = 150;
  u32 erasePer16KiBMs = 100;

  // For a block of data, and for a set-address command. A time of 0 is reported as dfuDNLOAD-IDLE
  // straight away.
  u32 writeMs = 4;
  u32 setAddressMs = 1;

  // How many times over the device is busy for as long as it says in bwPollTimeout.
  u32 busyRounds = 1;

  // How much of an erase or of a block is done, in percent from its first byte on, when the device
  // loses its power while it is busy with it. The other bytes are what they were before.
  u32 donePercentAtPowerLoss = 100;

  u32 manifestMs = 50;

  // False: the device leaves on the request already, and never reports dfuMANIFEST.
  bool reportsManifestation = true;
};

// What a GETSTATUS answers, without the iString.
struct DfuStatusReply {
  u8 status = dfuOK;
  u32 pollTimeoutMs = 0;
  u8 state = dfuIDLE;
};

// Something that goes wrong once, at a block of data or at an erase, counted from 1 since the
// keyboard was made.
struct DeviceFault {
  bool atErase = false;
  u64 number = 0;

  bool isPulled = false;  // the keyboard is, and plugged in again after the time
  bool stalls = false;    // the request is refused
  u8 status = dfuOK;      // what the work ends with; the flash stays as it was
  u32 milliseconds = 0;   // it is busy for longer by that, unless it is pulled
};

// Where the time of an update went, as the device sees it. The milliseconds are the options' times
// for the work, without what a fault adds. An erase of the whole flash is counted nowhere. Counts
// go on over restarts.
struct BootloaderCounts {
  u32 sectorsErased = 0;
  u32 blocksWritten = 0;
  u64 bytesWritten = 0;
  u64 eraseMs = 0;
  u64 writeMs = 0;
};

class DfuBootloader {
 public:
  // Keeps both; the owner may change the options between two requests.
  DfuBootloader(NorFlash& flash, const BootloaderOptions& options)
      : flash_(flash), options_(options) {}

  // Power-up: back to dfuIDLE, the flash as it is. What was scripted stays.
  void Reset();

  // What the device is busy with is broken off. The flash keeps the part of it that the options
  // tell.
  void LosePower(u64 nowMs);

  // One class request on the interface. data is what the host sends with it; the reply holds what
  // the device answers, and nothing when it stalls.
  platform::UsbReply Request(const WINUSB_SETUP_PACKET& setup, const platform::Bytes& data,
                             u64 nowMs);

  // The next GETSTATUS answers this, whatever it would have answered, and the device is in that
  // state from then on. Several are answered in order.
  void ScriptStatus(const DfuStatusReply& reply) { scripted_.push_back(reply); }
  void ForgetScript() { scripted_.clear(); }

  // The next DNLOAD meets it. A fault with nothing set takes back the one before it.
  void Spoil(const DeviceFault& fault) { spoilt_ = fault; }

  // True once after the device has been told to leave DFU mode. It is for the caller to take the
  // device off the bus; the state stays as it is.
  bool TakeLeave();

  DfuState state() const { return static_cast<DfuState>(state_); }
  const BootloaderCounts& counts() const { return counts_; }

 private:
  void Settle(u64 nowMs);
  void KeepForPowerLoss(u32 address, std::size_t count);
  platform::UsbReply Refuse(u8 status = errSTALLEDPKT);
  platform::UsbReply Download(const WINUSB_SETUP_PACKET& setup, const platform::Bytes& data);
  platform::UsbReply ClearStatus();
  platform::UsbReply Abort();
  platform::UsbReply ReportStatus(u64 nowMs);
  u32 AdvanceForStatus(u64 nowMs);
  u32 Execute(u64 nowMs);
  u32 ExecuteCommand();
  u32 ExecuteErase(u32 address);
  u32 ExecuteWrite();
  u32 Fail(u8 status);

  NorFlash& flash_;
  const BootloaderOptions& options_;
  u8 state_ = dfuIDLE;
  u8 status_ = dfuOK;
  u8 outcome_ = dfuOK;  // of the work in progress, told when it is done
  bool hasBlock_ = false;
  u16 blockNumber_ = 0;
  platform::Bytes block_;
  u32 addressPointer_ = 0;
  u32 pollMs_ = 0;
  u64 busyUntilMs_ = 0;
  bool leaving_ = false;
  u32 keptAddress_ = 0;
  platform::Bytes kept_;  // what the flash held where the device is busy
  DeviceFault spoilt_;    // the block that is kept
  std::deque<DfuStatusReply> scripted_;
  BootloaderCounts counts_;
};

}  // namespace simulator
