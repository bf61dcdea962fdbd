#include "simulator/dfu_bootloader.h"

#include <algorithm>
#include <utility>

namespace simulator {

using platform::Bytes;
using platform::UsbReply;
using platform::UsbResult;

namespace {

constexpr std::size_t MassEraseBytes = 1;

}  // namespace

// A bootloader keeps nothing over a restart: neither the error that it was in nor the address that
// was set.
void DfuBootloader::Reset() {
  state_ = dfuIDLE;
  status_ = dfuOK;
  outcome_ = dfuOK;
  hasBlock_ = false;
  addressPointer_ = 0;
  leaving_ = false;
}

// A part that loses its power in the midst of an erase or a write keeps what was done so far. The
// flash has it all already (see Execute), so the rest is put back.
void DfuBootloader::LosePower(u64 nowMs) {
  Settle(nowMs);
  if (state_ == dfuDNBUSY) {
    const std::size_t done = kept_.size() * options_.donePercentAtPowerLoss / 100;
    kept_.erase(kept_.begin(), kept_.begin() + static_cast<std::ptrdiff_t>(done));
    flash_.Overwrite(keptAddress_ + static_cast<u32>(done), kept_);
  }
  kept_.clear();
}

// Only where it can matter: else each erase would copy a whole sector for nothing.
void DfuBootloader::KeepForPowerLoss(u32 address, std::size_t count) {
  if (options_.donePercentAtPowerLoss < 100) {
    keptAddress_ = address;
    kept_ = flash_.Read(address, count).value_or(Bytes{});
  }
}

bool DfuBootloader::TakeLeave() {
  return std::exchange(leaving_, false);
}

UsbReply DfuBootloader::Request(const WINUSB_SETUP_PACKET& setup, const Bytes& data, u64 nowMs) {
  Settle(nowMs);
  switch (setup.Request) {
    case DfuDnload:
      return Download(setup, data);
    case DfuGetStatus:
      return ReportStatus(nowMs);
    case DfuClrStatus:
      return ClearStatus();
    case DfuGetState:
      return {UsbResult::Done, {state_}};
    case DfuAbort:
      return Abort();
    default:
      return Refuse();
  }
}

// Work that has had its time waits to be asked about.
void DfuBootloader::Settle(u64 nowMs) {
  if (state_ == dfuDNBUSY && nowMs >= busyUntilMs_) {
    state_ = dfuDNLOADSYNC;
  }
}

// A device has one way to say no to a request: it stalls the pipe. Why, it tells when it is asked
// for its status.
UsbReply DfuBootloader::Refuse(u8 status) {
  Fail(status);
  return {UsbResult::Stalled, {}};
}

// The state stays until somebody clears it, and the status says what it was.
u32 DfuBootloader::Fail(u8 status) {
  state_ = dfuERROR;
  status_ = status;
  hasBlock_ = false;
  return 0;
}

// The request only hands the block over. The device begins to work on it when it is asked for its
// status, as the standard has it.
UsbReply DfuBootloader::Download(const WINUSB_SETUP_PACKET& setup, const Bytes& data) {
  if ((state_ != dfuIDLE && state_ != dfuDNLOADIDLE) || data.size() > options_.transferSize) {
    return Refuse();
  }
  if (spoilt_.stalls) {
    spoilt_ = {};
    return Refuse();
  }
  // A block without bytes ends the download, whatever its number is.
  if (data.empty()) {
    // The device is to leave DFU mode.
    state_ = dfuMANIFESTSYNC;
    leaving_ = !options_.reportsManifestation;
    return {};
  }
  hasBlock_ = true;
  blockNumber_ = setup.Value;
  block_ = data;
  status_ = dfuOK;
  outcome_ = dfuOK;
  state_ = dfuDNLOADSYNC;
  return {};
}

// The way out of dfuERROR, and out of nothing else.
UsbReply DfuBootloader::ClearStatus() {
  if (state_ != dfuERROR) {
    return Refuse();
  }
  state_ = dfuIDLE;
  status_ = dfuOK;
  return {};
}

// Between two blocks it leads back to dfuIDLE. While the device works it cannot be told to stop.
UsbReply DfuBootloader::Abort() {
  switch (state_) {
    case dfuIDLE:
    case dfuDNLOADSYNC:
    case dfuDNLOADIDLE:
    // Manifestation is where this part leaves: it does not come back to dfuIDLE, it restarts.
    case dfuMANIFESTSYNC:
      state_ = dfuIDLE;
      hasBlock_ = false;
      return {};
    default:
      return Refuse();
  }
}

UsbReply DfuBootloader::ReportStatus(u64 nowMs) {
  DfuStatusReply reply;
  reply.pollTimeoutMs = AdvanceForStatus(nowMs);
  if (!scripted_.empty()) {
    reply = scripted_.front();
    scripted_.pop_front();
    state_ = reply.state;
    status_ = reply.status;
    // A scripted answer is believed for as long as it says, so that a device that claims to be busy
    // is.
    busyUntilMs_ = nowMs + reply.pollTimeoutMs;
    outcome_ = dfuOK;
    kept_.clear();
  }
  return {UsbResult::Done,
          {status_, static_cast<u8>(reply.pollTimeoutMs), static_cast<u8>(reply.pollTimeoutMs >> 8),
           static_cast<u8>(reply.pollTimeoutMs >> 16), state_, 0}};
}

// What a GETSTATUS sets going; the poll time-out to tell.
u32 DfuBootloader::AdvanceForStatus(u64 nowMs) {
  switch (state_) {
    case dfuDNLOADSYNC:
      if (hasBlock_) {
        return Execute(nowMs);
      }
      if (outcome_ != dfuOK) {
        return Fail(outcome_);
      }
      state_ = dfuDNLOADIDLE;
      return 0;
    // Asked too early it tells what is left; it never counts that as an error, though the standard
    // lets it.
    case dfuDNBUSY:
      return static_cast<u32>(std::min<u64>(pollMs_, busyUntilMs_ - nowMs));
    case dfuMANIFESTSYNC:
      state_ = dfuMANIFEST;
      leaving_ = true;
      return options_.manifestMs;
    default:
      return 0;
  }
}

// Does the work of the block at once; the time it takes passes afterwards, and only then does the
// device tell how it went.
u32 DfuBootloader::Execute(u64 nowMs) {
  hasBlock_ = false;
  kept_.clear();
  const DeviceFault fault = std::exchange(spoilt_, {});
  // What was ordered to go wrong takes its time as if it had gone well: the error is told when the
  // work would be done.
  if (fault.status != dfuOK) {
    outcome_ = fault.status;
    pollMs_ = options_.writeMs;
  } else {
    pollMs_ = (blockNumber_ == 0 ? ExecuteCommand() : ExecuteWrite()) + fault.milliseconds;
  }
  if (state_ == dfuERROR) {
    return 0;
  }
  if (pollMs_ == 0) {
    state_ = dfuDNLOADIDLE;
    return outcome_ == dfuOK ? 0 : Fail(outcome_);
  }
  state_ = dfuDNBUSY;
  busyUntilMs_ = nowMs + u64{pollMs_} * options_.busyRounds;
  return pollMs_;
}

u32 DfuBootloader::ExecuteCommand() {
  // Without an address everything is erased that can be. The service does not send that; other
  // tools do.
  if (block_[0] == EraseCommand && block_.size() == MassEraseBytes) {
    for (const FlashSector& sector : flash_.sectors()) {
      if (sector.isErasable()) {
        flash_.Erase(sector);
      }
    }
    return options_.eraseBaseMs;
  }
  if (block_.size() != CommandBytes) {
    return Fail(errUNKNOWN);
  }
  const u32 address = AddressIn(block_);
  switch (block_[0]) {
    case EraseCommand:
      return ExecuteErase(address);
    // An address where there is no memory is refused at once, as parts do, and not at the first
    // block.
    case SetAddressCommand:
      if (flash_.FindSector(address) == nullptr) {
        return Fail(errADDRESS);
      }
      addressPointer_ = address;
      return options_.setAddressMs;
    default:
      return Fail(errUNKNOWN);
  }
}

// Larger sectors take longer on real parts, roughly in proportion; there is a share that does not
// depend on the size.
u32 DfuBootloader::ExecuteErase(u32 address) {
  const FlashSector* const sector = flash_.FindSector(address);
  if (sector == nullptr) {
    return Fail(errADDRESS);
  }
  if (!sector->isErasable()) {
    return Fail(errTARGET);
  }
  KeepForPowerLoss(sector->address, sector->sizeBytes);
  flash_.Erase(*sector);
  constexpr u32 Unit = 16 * 1024;
  const u32 busyMs = options_.eraseBaseMs +
                     static_cast<u32>(u64{sector->sizeBytes} * options_.erasePer16KiBMs / Unit);
  ++counts_.sectorsErased;
  counts_.eraseMs += busyMs;
  return busyMs;
}

u32 DfuBootloader::ExecuteWrite() {
  if (blockNumber_ < FirstDataBlock) {
    return Fail(errUNKNOWN);
  }
  // Blocks count from 2 behind the address that was set, each as long as the device said its blocks
  // are. So a block that is shorter than that and not the last one leaves a gap.
  const u64 first =
      u64{addressPointer_} + u64{blockNumber_ - u32{FirstDataBlock}} * options_.transferSize;
  for (u64 at = first; at < first + block_.size();) {
    const FlashSector* const sector =
        at > 0xFFFFFFFF ? nullptr : flash_.FindSector(static_cast<u32>(at));
    if (sector == nullptr) {
      return Fail(errADDRESS);
    }
    if (!sector->isWritable()) {
      return Fail(errTARGET);
    }
    at = u64{sector->address} + sector->sizeBytes;
  }
  KeepForPowerLoss(static_cast<u32>(first), block_.size());
  // Parts read back what they wrote. A sector that was not erased shows up here.
  outcome_ = flash_.Program(static_cast<u32>(first), block_) ? dfuOK : errVERIFY;
  ++counts_.blocksWritten;
  counts_.bytesWritten += block_.size();
  counts_.writeMs += options_.writeMs;
  return options_.writeMs;
}

}  // namespace simulator
