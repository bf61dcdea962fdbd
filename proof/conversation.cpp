#include "proof/conversation.h"

#include <algorithm>
#include <cstdio>

#include "proof/trial_report.h"
#include "simulator/timeline.h"

namespace proof {

namespace {

// The rounds of CLRSTATUS and GETSTATE before a device in dfuERROR is given up.
constexpr u32 ErrorRounds = 3;

constexpr u8 dfuMANIFESTWAITRESET = 8;

// In the words of the trace, so that what was expected can be looked for there.
std::string Describe(const Request& request) {
  platform::TransferRecord record;
  record.setup = {request.type, request.request, request.value, 0, request.length};
  record.data = request.data;
  return DescribeTransfer(record);
}

// What goes to the device counts byte for byte; what comes from it is the device's business.
bool IsSame(const Request& wanted, const platform::TransferRecord& found) {
  const bool toDevice = (wanted.type & DirectionToHost) == 0;
  return found.setup.RequestType == wanted.type && found.setup.Request == wanted.request &&
         found.setup.Value == wanted.value && found.setup.Index == 0 &&
         found.setup.Length == wanted.length && (!toDevice || found.data == wanted.data);
}

std::string HexText(unsigned value) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%02X", value);
  return text;
}

// What the two lines above each other do not show: where the bytes part, or an odd setup packet.
// Empty when they show it.
std::string FirstDifference(const Request& wanted, const platform::TransferRecord& found) {
  if (Describe(wanted) != DescribeTransfer(found)) {
    return "";
  }
  if (found.setup.Index != 0 || found.setup.Length != wanted.length) {
    return " with wIndex " + std::to_string(found.setup.Index) + " and wLength " +
           std::to_string(found.setup.Length) + " instead of 0 and " +
           std::to_string(wanted.length);
  }
  const std::size_t most = std::min(wanted.data.size(), found.data.size());
  for (std::size_t at = 0; at < most; ++at) {
    if (wanted.data[at] != found.data[at]) {
      return " with byte " + std::to_string(at) + " " + HexText(found.data[at]) + " instead of " +
             HexText(wanted.data[at]);
    }
  }
  return " with " + std::to_string(found.data.size()) + " bytes of data instead of " +
         std::to_string(wanted.data.size());
}

platform::Call CallOf(const Request& wanted) {
  return wanted.request == SetInterfaceRequest ? platform::Call::WinUsb_SetCurrentAlternateSetting
                                               : platform::Call::WinUsb_ControlTransfer;
}

}  // namespace

// A call that was made to fail has no device. The first real transfer tells which it is.
Conversation::Conversation(const std::vector<Event>& events,
                           const std::vector<std::size_t>& ofThread,
                           std::vector<std::string>& faults)
    : events_(events), ofThread_(ofThread), faults_(faults) {
  const Event& first = events_[ofThread_.front()];
  operation_.threadId = first.threadId;
  operation_.first = ofThread_.front();
  operation_.startMs = first.what == Happening::Transfer ? first.transfer.startMs : first.timeMs;
  operation_.dueMs = operation_.startMs;
  for (const std::size_t index : ofThread_) {
    if (events_[index].what == Happening::Transfer) {
      operation_.unit = events_[index].unit;
      break;
    }
  }
}

// After one request that was not due nothing more can be said of the operation.
void Conversation::Fault(const Event& at, const std::string& what) {
  const u64 timeMs = at.what == Happening::Transfer ? at.transfer.startMs : at.timeMs;
  faults_.push_back(At(timeMs) + what);
  throw Unexpected();
}

// Whether it failed was decided before this; the ABORT itself may fail without a consequence.
void Conversation::Abort() {
  if (failedAt_ == 0) {
    failedAt_ = operation_.last;
  }
  Ask({HostToInterface, DfuAbort});
}

// A device that has said it resets itself gets nothing more, and that is as good as no answer.
bool Conversation::Ask(const Request& wanted) {
  if (released_) {
    return false;
  }
  const Event* const found = Next();
  if (found == nullptr) {
    throw NoMore();
  }
  Compare(wanted, *found);
  ++at_;
  operation_.last = ofThread_[at_ - 1];
  operation_.endMs = found->timeMs;
  operation_.dueMs = found->timeMs;
  return found->what == Happening::Transfer && found->transfer.result == platform::UsbResult::Done;
}

// A request too early counts as wrong, for the device may drop it.
void Conversation::Compare(const Request& wanted, const Event& found) {
  if (found.what == Happening::CallFailed) {
    if (found.call != CallOf(wanted)) {
      Fault(found, "expected " + Describe(wanted) + ", found a call of " + NameOf(found.call));
    }
    return;
  }
  if (found.unit != operation_.unit) {
    Fault(found, "expected every request for one device, found " +
                     DescribeTransfer(found.transfer) + " for another");
  }
  if (!IsSame(wanted, found.transfer)) {
    Fault(found, "expected " + Describe(wanted) + ", found " + DescribeTransfer(found.transfer) +
                     FirstDifference(wanted, found.transfer));
  }
  if (found.transfer.startMs < operation_.dueMs) {
    Fault(found, "expected " + DescribeTransfer(found.transfer) + " not before " +
                     SecondsText(operation_.dueMs) +
                     ", when the device asked for it, found it at " +
                     SecondsText(found.transfer.startMs));
  }
}

// A short reply is taken for an answer that says nothing new.
bool Conversation::Status() {
  if (!Ask({InterfaceToHost, DfuGetStatus, 0, StatusReplyBytes})) {
    return false;
  }
  const platform::Bytes& reply = events_[operation_.last].transfer.data;
  if (reply.size() == StatusReplyBytes) {
    status_ = reply[0];
    pollMs_ = PollTimeoutIn(reply);
    state_ = reply[4];
  }
  released_ = state_ == dfuMANIFEST || state_ == dfuMANIFESTWAITRESET;
  return true;
}

bool Conversation::State() {
  if (!Ask({InterfaceToHost, DfuGetState, 0, 1})) {
    return false;
  }
  const platform::Bytes& reply = events_[operation_.last].transfer.data;
  state_ = reply.empty() ? state_ : reply[0];
  return true;
}

bool Conversation::Download(u16 block, const platform::Bytes& data) {
  return Ask({HostToInterface, DfuDnload, block, static_cast<u16>(data.size()), data});
}

// ---- One block, and the way back to idle ----

// Accepted, refused for good, or tried again; a device that does not answer at all breaks it off.
bool Conversation::Send(u16 block, const platform::Bytes& data) {
  for (u32 attempt = 0; attempt < Attempts; ++attempt) {
    const Try outcome = TryToSend(block, data);
    if (outcome == Try::Accepted || outcome == Try::Refused) {
      return outcome == Try::Accepted;
    }
    if (outcome == Try::Broken) {
      break;
    }
  }
  Abort();
  return false;
}

// Only a command asks for the state beforehand: a block follows one that has just been answered.
Conversation::Try Conversation::TryToSend(u16 block, const platform::Bytes& data) {
  if (block == 0 && !LeaveError()) {
    return Try::Broken;
  }
  if (!Download(block, data)) {
    return State() ? ClearAndTryAgain() : Try::Broken;
  }
  if (!Status()) {
    return Status() ? ClearAndTryAgain() : Try::Broken;
  }
  if (state_ == dfuERROR) {
    return ClearAndTryAgain();
  }
  const bool accepted =
      status_ == dfuOK && (state_ == dfuDNBUSY || state_ == dfuDNLOADIDLE || state_ == dfuMANIFEST);
  Wait(accepted && state_ == dfuDNBUSY ? pollMs_ : 0);
  return accepted ? Try::Accepted : Try::Refused;
}

// A device that stays in dfuERROR is given up.
bool Conversation::LeaveError() {
  if (!State()) {
    return true;
  }
  for (u32 round = 0; state_ == dfuERROR; ++round) {
    if (round == ErrorRounds) {
      return false;
    }
    Clear();
    if (!State()) {
      return false;
    }
  }
  return true;
}

// A device in dfuERROR refuses everything but being cleared.
Conversation::Try Conversation::ClearAndTryAgain() {
  if (state_ == dfuERROR) {
    Clear();
  }
  return Try::Again;
}

// The way back to dfuIDLE from whatever state the device was left in, and before every operation.
bool Conversation::ResetToIdle() {
  if (!Status() || state_ == dfuERROR) {
    if (!Clear() || !Status()) {
      Abort();
      return false;
    }
  }
  if (!Status()) {
    Abort();
    return false;
  }
  if (state_ != dfuIDLE) {
    if (!Ask({HostToInterface, DfuAbort})) {
      Clear();
    }
    if (!Status()) {
      Abort();
      return false;
    }
  }
  if (state_ == dfuERROR) {
    Clear();
    Status();
  }
  if (state_ != dfuIDLE) {
    Abort();
    return false;
  }
  return true;
}

}  // namespace proof
