#include "simulator/wire_reader.h"

#include "simulator/wire_requests.h"

namespace simulator {

std::optional<WireWork> WireReader::Read(const platform::TransferRecord& record) {
  const platform::Bytes& data = record.data;
  if (!IsClassRequest(record.setup, DfuDnload)) {
    return std::nullopt;
  }
  // The end of the download has a number, too, but goes nowhere.
  if (data.empty()) {
    return WireWork{WireWork::Kind::Leave, base_, 0};
  }
  // Commands go under the first number, data from the third one on.
  if (IsCommand(record.setup, data)) {
    base_ = AddressIn(data);
    return WireWork{data[0] == EraseCommand ? WireWork::Kind::Erase : WireWork::Kind::SetAddress,
                    base_, 0};
  }
  // A short block is the last one, so what went before tells how long the others are. A block that
  // is sent once more, because the device did not take it, goes where it went before.
  if (record.setup.Value == FirstDataBlock) {
    address_ = base_;
  } else if (record.setup.Value != blockNumber_) {
    address_ += blockBytes_;
  }
  blockNumber_ = record.setup.Value;
  blockBytes_ = static_cast<u32>(data.size());
  return WireWork{WireWork::Kind::Block, address_, blockBytes_};
}

std::optional<WireStatus> ReadStatus(const platform::TransferRecord& record) {
  if (!IsClassRequest(record.setup, DfuGetStatus) || record.data.size() < StatusReplyBytes) {
    return std::nullopt;
  }
  return WireStatus{record.data[0], record.data[4]};
}

}  // namespace simulator
