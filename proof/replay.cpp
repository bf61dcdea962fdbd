#include "proof/replay.h"

#include <algorithm>

#include "simulator/timeline.h"

namespace proof {

namespace {

constexpr u8 SelectSetting = 0x01;  // the request type
constexpr u16 FirstDataBlock = 2;

class Replayer : public Conversation {
 public:
  Replayer(const std::vector<Event>& events, const std::vector<std::size_t>& ofThread,
           const UpdateScript& script, std::vector<std::string>& faults)
      : Conversation(events, ofThread, faults), script_(script) {}

  Operation Run();

 private:
  void FindKind();
  void Decide(bool good);
  bool Flash();
  bool SelectsSetting();
  bool SendCommand();
  bool SendCurrent();
  bool AdvanceOrResend(bool resend, bool& done);
  bool ReadWhileBusy(bool& resend);
  bool Leave();
  u32 ElementCount() const;
  std::size_t ElementBytes() const;

  const UpdateScript& script_;
  u32 element_ = 0;
  u16 block_ = 0;
  u32 retries_ = Attempts;
};

// An operation whose events end in the midst is unfinished, unless it had failed before.
Operation Replayer::Run() {
  FindKind();
  try {
    const bool good = operation_.kind == Operation::Kind::Leave ? Leave() : Flash();
    Decide(good);
    if (const Event* const more = Next(); more != nullptr) {
      Fault(*more, std::string("expected no more of an operation that is over, found ") +
                       (more->what == Happening::Transfer ? DescribeTransfer(more->transfer)
                                                          : "a request that failed"));
    }
  } catch (const NoMore&) {
    if (failedAt_ != 0) {
      Decide(false);
    }
  } catch (const Unexpected&) {
  }
  return operation_;
}

// The failure was to be seen before the ABORT that it brought.
void Replayer::Decide(bool good) {
  operation_.end = good ? Operation::End::Succeeded : Operation::End::Failed;
  operation_.decided = !good && failedAt_ != 0 ? failedAt_ : operation_.last;
}

// The first command tells: it erases or sets an address. A leave sends none, and selects nothing.
void Replayer::FindKind() {
  operation_.kind = Operation::Kind::Leave;
  for (const std::size_t index : ofThread_) {
    const Event& event = events_[index];
    if ((event.what == Happening::Transfer &&
         event.transfer.setup.Request == SetInterfaceRequest) ||
        (event.what == Happening::CallFailed &&
         event.call != platform::Call::WinUsb_ControlTransfer)) {
      operation_.kind = Operation::Kind::Erase;
    }
    if (operation_.kind != Operation::Kind::Leave && event.what == Happening::Transfer &&
        event.transfer.setup.Request == DfuDnload && !event.transfer.data.empty()) {
      const bool erases = event.transfer.setup.Value == 0 && event.transfer.data[0] == EraseCommand;
      operation_.kindIsSure = true;
      operation_.kind = erases ? Operation::Kind::Erase : Operation::Kind::Download;
      return;
    }
  }
}

u32 Replayer::ElementCount() const {
  return static_cast<u32>(operation_.kind == Operation::Kind::Erase ? script_.erased.size()
                                                                    : script_.written.size());
}

std::size_t Replayer::ElementBytes() const {
  return operation_.kind == Operation::Kind::Erase ? 0 : script_.written[element_].bytes.size();
}

bool Replayer::SendCommand() {
  const bool erases = operation_.kind == Operation::Kind::Erase;
  const u32 address = erases ? script_.erased[element_] : script_.written[element_].address;
  block_ = 0;
  return Send(0, {static_cast<u8>(erases ? EraseCommand : SetAddressCommand),
                  static_cast<u8>(address), static_cast<u8>(address >> 8),
                  static_cast<u8>(address >> 16), static_cast<u8>(address >> 24)});
}

// The block's place in the piece follows from its number alone.
bool Replayer::SendCurrent() {
  if (block_ == 0) {
    return SendCommand();
  }
  const std::vector<u8>& bytes = script_.written[element_].bytes;
  const std::size_t from = std::size_t{block_ - u32{FirstDataBlock}} * script_.transferSize;
  const std::size_t to = std::min(bytes.size(), from + script_.transferSize);
  return Send(block_, {bytes.begin() + static_cast<std::ptrdiff_t>(from),
                       bytes.begin() + static_cast<std::ptrdiff_t>(to)});
}

// What comes after a block that is done with, or once more that block. done: there is nothing left.
bool Replayer::AdvanceOrResend(bool resend, bool& done) {
  if (resend) {
    return SendCurrent();
  }
  const u16 next = block_ == 0 ? FirstDataBlock : static_cast<u16>(block_ + 1);
  if (std::size_t{next - u32{FirstDataBlock}} * script_.transferSize < ElementBytes()) {
    block_ = next;
    return SendCurrent();
  }
  if (element_ + 1 < ElementCount()) {
    ++element_;
    return SendCommand();
  }
  done = true;
  return true;
}

// While the device is busy: false when the operation has failed.
bool Replayer::ReadWhileBusy(bool& resend) {
  if (!Status()) {
    Abort();
    return false;
  }
  if (status_ != dfuOK) {
    if (state_ == dfuERROR) {
      Clear();
    }
    resend = --retries_ != 0;
    if (!resend) {
      Abort();
    }
    return resend;
  }
  retries_ = Attempts;
  if (state_ == dfuDNBUSY) {
    Wait(pollMs_);
  } else if (state_ != dfuDNLOADIDLE) {
    Abort();
    return false;
  }
  return true;
}

// The driver knows the settings by itself, so that a failure there may be followed by an ABORT or
// by nothing.
bool Replayer::SelectsSetting() {
  const Event* const next = Next();
  if (next->what == Happening::CallFailed &&
      next->call == platform::Call::WinUsb_QueryInterfaceSettings) {
    PassOver();
    if (Next() != nullptr) {
      Abort();  // which it may also leave out
    }
    return false;
  }
  return Ask({SelectSetting, SetInterfaceRequest, script_.alternateSetting});
}

// The last answer decides what comes next: another look at a busy device, the block once more, or
// the one behind it.
bool Replayer::Flash() {
  if (!SelectsSetting() || !ResetToIdle() || !SendCommand()) {
    return false;
  }
  for (bool done = false; !done;) {
    bool resend = false;
    if (state_ == dfuDNBUSY) {
      if (!ReadWhileBusy(resend)) {
        return false;
      }
      if (!resend) {
        continue;
      }
    } else if (state_ != dfuDNLOADIDLE) {
      Abort();
      return false;
    }
    if (!AdvanceOrResend(resend, done)) {
      return false;
    }
  }
  return ResetToIdle();
}

// A DNLOAD without data. The device may stall it, or be gone before it answers.
bool Replayer::Leave() {
  if (!ResetToIdle()) {
    return false;
  }
  operation_.lacksRequest = Next() == nullptr;
  if (!operation_.lacksRequest) {
    Send(0, {});
    failedAt_ = 0;  // whatever became of it
  }
  return true;
}

}  // namespace

Operation Replay(const std::vector<Event>& events, const std::vector<std::size_t>& ofThread,
                 const UpdateScript& script, std::vector<std::string>& faults) {
  return Replayer(events, ofThread, script, faults).Run();
}

}  // namespace proof
