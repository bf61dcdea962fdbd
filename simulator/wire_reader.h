// What the requests of a download mean: a DNLOAD tells a block's number, and its address follows
// from the commands and the blocks before it.
#pragma once

#include <optional>

#include "common/types.h"
#include "platform/machine/transfer_log.h"

namespace simulator {

// What one DNLOAD asks for. DfuSe puts its commands into block 0 and data into the blocks from 2
// on; a DNLOAD without bytes ends the download and makes the device leave. Whether the device did
// it is not told here: a stalled request reads like one that was taken.
struct WireWork {
  enum class Kind { Erase, SetAddress, Block, Leave };
  Kind kind = Kind::Leave;

  // Where the work begins. A Leave goes nowhere and shows what the last command set.
  u32 address = 0;
  u32 bytes = 0;  // of a block
};

// Is shown every transfer in its order; the owner guards it. It has no device to ask: how long a
// full block is, it learns from the blocks.
class WireReader {
 public:
  // Empty for a transfer that is no DNLOAD.
  std::optional<WireWork> Read(const platform::TransferRecord& record);

 private:
  u32 base_ = 0;        // as the last command set it
  u32 address_ = 0;     // of the last block
  u32 blockBytes_ = 0;  // and its bytes
  u16 blockNumber_ = 0;
};

// The bStatus and bState of a GETSTATUS that was answered; empty for any other transfer.
struct WireStatus {
  u8 status = 0;
  u8 state = 0;
};
std::optional<WireStatus> ReadStatus(const platform::TransferRecord& record);

}  // namespace simulator
