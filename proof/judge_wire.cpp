#include "proof/judge_wire.h"

#include <algorithm>
#include <map>
#include <set>

#include "proof/trial_report.h"
#include "simulator/timeline.h"
#include "simulator/wire_requests.h"

namespace proof {

namespace {

bool IsOfDfu(const Event& event) {
  return event.what == Happening::Transfer && event.side == Side::Dfu;
}

// The requests that operations send on threads of their own. An ABORT may be another thread's that
// ends an operation.
bool IsOfOperation(const Event& event) {
  if (event.what == Happening::CallFailed) {
    return event.call == platform::Call::WinUsb_SetCurrentAlternateSetting ||
           event.call == platform::Call::WinUsb_QueryInterfaceSettings;
  }
  if (!IsOfDfu(event)) {
    return false;
  }
  const WINUSB_SETUP_PACKET& setup = event.transfer.setup;
  return setup.Request == SetInterfaceRequest ||
         (IsClassRequest(setup) && setup.Request != DfuAbort);
}

// A transfer that was made to fail never reached the wire, and still was the operation's next
// request.
bool BelongsToReplay(const Event& event) {
  return IsOfDfu(event) ||
         (event.what == Happening::CallFailed &&
          (event.call == platform::Call::WinUsb_ControlTransfer || IsOfOperation(event)));
}

// The descriptors that a refresh and the set-up of an operation read.
bool IsDescription(const WINUSB_SETUP_PACKET& setup) {
  const u32 type = setup.Value >> 8;
  const u32 index = setup.Value & 0xFF;
  return setup.RequestType == StandardToHost && setup.Request == GetDescriptorRequest &&
         ((type == 1 && index == 0 && setup.Length == 18) ||
          (type == 2 && index == 0 && setup.Length == 512) ||
          (type == 4 && index == 0 && setup.Length == 9) ||
          (type == 3 && index != 0 && setup.Index == 0x0409 && setup.Length == 512));
}

// The one report that the service may send, and the strings that it reads.
bool IsHidRequest(const Event& event) {
  const WINUSB_SETUP_PACKET& setup = event.transfer.setup;
  if (setup.Request == HidSetReportRequest) {
    const platform::Bytes& report = event.transfer.data;
    return setup.Value == 0x0217 && report.size() > 1 && report[0] == 0x17 && report[1] == 0x01;
  }
  return setup.Request == GetDescriptorRequest && (setup.Value >> 8) == 3;
}

// The operation that stood when this event happened: the last one that had begun, on any device.
const Operation* StandingAt(const std::vector<Operation>& operations, std::size_t index) {
  const Operation* standing = nullptr;
  for (const Operation& operation : operations) {
    standing = operation.first < index ? &operation : standing;
  }
  return standing;
}

class WireJudge {
 public:
  WireJudge(const History& history, const TrialPlan& plan, std::vector<std::string>& faults)
      : events_(history.events()), script_(ScriptOf(plan)), faults_(faults) {}

  std::vector<Operation> Judge() {
    FindOperations();
    NameDownloads();
    LookAtChain();
    LookAtOthers();
    return std::move(operations_);
  }

 private:
  std::set<u32> FindLaunchers() const;
  void FindOperations();
  void NameDownloads();
  void LookAtChain();
  void LookAtOthers();
  void LookAtAbort(std::size_t index);
  void LookAtOverlap(const Event& event);

  const std::vector<Event>& events_;
  const UpdateScript script_;
  std::vector<std::string>& faults_;
  std::vector<Operation> operations_;
  const Event* lastOfDfu_ = nullptr;
  std::map<u32, u32> aborts_;  // by the thread of the operation that was ended
};

// Who reads descriptors prepares or launches.
std::set<u32> WireJudge::FindLaunchers() const {
  std::set<u32> launchers;
  for (const Event& event : events_) {
    if (IsOfDfu(event) && event.transfer.setup.RequestType == StandardToHost) {
      launchers.insert(event.threadId);
    }
  }
  return launchers;
}

// An operation is known by its thread, which it has to itself. Threads that read descriptors
// prepare and launch, and are none. Each operation is replayed from the answers that it got.
void WireJudge::FindOperations() {
  const std::set<u32> launchers = FindLaunchers();
  std::map<u32, std::vector<std::size_t>> ofThread;
  for (const Event& event : events_) {
    if (IsOfOperation(event) && launchers.count(event.threadId) == 0) {
      ofThread[event.threadId];
    }
  }
  for (std::size_t i = 0; i < events_.size(); ++i) {
    if (const auto thread = ofThread.find(events_[i].threadId);
        thread != ofThread.end() && BelongsToReplay(events_[i])) {
      thread->second.push_back(i);
    }
  }
  for (const auto& [thread, indices] : ofThread) {
    operations_.push_back(Replay(events_, indices, script_, faults_));
  }
  std::sort(operations_.begin(), operations_.end(),
            [](const Operation& a, const Operation& b) { return a.first < b.first; });
}

// One that came to no command after an erase that succeeded was to be the download.
void WireJudge::NameDownloads() {
  for (std::size_t i = 1; i < operations_.size(); ++i) {
    const Operation& before = operations_[i - 1];
    Operation& operation = operations_[i];
    if (operation.kind == Operation::Kind::Erase && !operation.kindIsSure &&
        before.kind == Operation::Kind::Erase && before.end == Operation::End::Succeeded &&
        (before.unit == operation.unit || operation.unit == Unit::Other)) {
      operation.kind = Operation::Kind::Download;
      operation.unit = before.unit;
    }
  }
}

// A download follows a good erase and a leave a good download, of the same device.
void WireJudge::LookAtChain() {
  for (std::size_t i = 0; i < operations_.size(); ++i) {
    const Operation& operation = operations_[i];
    if (i > 0 && operations_[i - 1].last > operation.first) {
      faults_.push_back(At(operation.startMs) +
                        "expected one operation at a time, found another beside it");
    }
    if (operation.kind == Operation::Kind::Erase) {
      continue;
    }
    const bool leaves = operation.kind == Operation::Kind::Leave;
    const Operation::Kind wanted = leaves ? Operation::Kind::Download : Operation::Kind::Erase;
    const bool follows = i > 0 && operations_[i - 1].kind == wanted &&
                         operations_[i - 1].end == Operation::End::Succeeded &&
                         (operations_[i - 1].unit == operation.unit || operation.endMs == 0);
    if (!follows) {
      faults_.push_back(
          At(operation.startMs) + "expected " +
          (leaves ? "a leave only after a good download" : "a download only after a good erase") +
          " of that device, found one without");
    }
  }
}

void WireJudge::LookAtOthers() {
  const auto isOperation = [&](u32 threadId) {
    return std::any_of(operations_.begin(), operations_.end(),
                       [=](const Operation& each) { return each.threadId == threadId; });
  };
  for (std::size_t i = 0; i < events_.size(); ++i) {
    const Event& event = events_[i];
    if (event.what != Happening::Transfer) {
      continue;
    }
    const WINUSB_SETUP_PACKET& setup = event.transfer.setup;
    LookAtOverlap(event);
    if (event.side == Side::Hid) {
      if (!IsHidRequest(event)) {
        faults_.push_back(At(event.timeMs) +
                          "expected the product string or the enter-DFU report, "
                          "found " +
                          DescribeTransfer(event.transfer));
      }
    } else if (isOperation(event.threadId) || IsDescription(setup)) {
      continue;
    } else if (IsClassRequest(setup, DfuAbort)) {
      LookAtAbort(i);
    } else {
      faults_.push_back(At(event.timeMs) + "expected no request but an operation's, found " +
                        DescribeTransfer(event.transfer));
    }
  }
}

// One speaks to a DFU device at a time.
void WireJudge::LookAtOverlap(const Event& event) {
  if (event.side != Side::Dfu) {
    return;
  }
  if (lastOfDfu_ != nullptr && event.transfer.startMs < lastOfDfu_->timeMs &&
      event.threadId != lastOfDfu_->threadId) {
    faults_.push_back(At(event.timeMs) + "expected one thread on the wire, found " +
                      DescribeTransfer(event.transfer) + " beside " +
                      DescribeTransfer(lastOfDfu_->transfer));
  }
  lastOfDfu_ = &event;
}

// Only who ends an erase or a download in the midst of its work sends one, once. Another thread may
// say ABORT once, to an operation that it ends in the midst of its work. After that the device is
// to be left in peace.
void WireJudge::LookAtAbort(std::size_t index) {
  const Operation* const standing = StandingAt(operations_, index);
  const bool wanted = standing != nullptr && standing->end == Operation::End::Unfinished &&
                      standing->kind != Operation::Kind::Leave && standing->last < index &&
                      ++aborts_[standing->threadId] == 1;
  if (!wanted) {
    faults_.push_back(At(events_[index].timeMs) +
                      "expected no request for a finished operation, found " +
                      DescribeTransfer(events_[index].transfer));
  }
}

}  // namespace

std::vector<Operation> JudgeWire(const History& history, const TrialPlan& plan,
                                 std::vector<std::string>& faults) {
  return WireJudge(history, plan, faults).Judge();
}

}  // namespace proof
