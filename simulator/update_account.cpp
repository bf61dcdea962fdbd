#include "simulator/update_account.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "platform/machine/machine.h"
#include "simulator/number_text.h"
#include "simulator/timeline.h"
#include "simulator/wire_requests.h"

namespace simulator {

namespace {

// What the start-up waits before its decision, and between the report and the look for the DFU
// device. It waits once more before it asks for notifications, but no update waits for that.
constexpr u64 StartUpDelaysMs[] = {10'000, 5'000, 5'000};

// An operation that has ended is looked at by the next tick.
constexpr u64 TickMs = 3'000;

// The first word of what the timeline says of it.
std::string RequestName(const platform::TransferRecord& record) {
  const std::string text = DescribeTransfer(record);
  return text.substr(0, text.find_first_of(" :"));
}

}  // namespace

UpdateAccount::UpdateAccount(platform::Machine& machine) : machine_(machine) {
  watching_ = {
      machine.transfers.Observe(
          [this](const platform::TransferRecord& record) { NoteTransfer(record); }),
      machine.waits.Observe([this](const platform::WaitRecord& wait) { NoteWait(wait); }),
      machine.gate.Observe([this](platform::Call call) { NoteCall(call); }),
  };
}

void UpdateAccount::NoteMode(KeyboardMode mode, u64 nowMs) {
  const std::scoped_lock hold(lock_);
  const bool away = mode == KeyboardMode::Detached || mode == KeyboardMode::Restarting;
  if (away && !away_) {
    // One that was asked to restart is on its way from then on.
    awayFromMs_ = reportMs_.value_or(nowMs);
    reportMs_.reset();
  } else if (!away && away_) {
    stretches_.push_back({Away, awayFromMs_, nowMs});
  }
  away_ = away;
}

u64 UpdateAccount::firstTransferMs() const {
  const std::scoped_lock hold(lock_);
  return firstTransferMs_;
}

u64 UpdateAccount::lastTransferMs() const {
  const std::scoped_lock hold(lock_);
  return lastTransferMs_;
}

void UpdateAccount::NoteTransfer(const platform::TransferRecord& record) {
  const std::scoped_lock hold(lock_);
  firstTransferMs_ = firstTransferMs_ == 0 ? record.startMs : firstTransferMs_;
  lastTransferMs_ = std::max(lastTransferMs_, record.endMs);
  stretches_.push_back({Wire, record.startMs, record.endMs});
  const std::string name = RequestName(record);
  ++counts_.transfers[name];
  CountBlock(record);
  EndPoll(record.threadId, record.startMs);
  if (name == "SET_REPORT") {
    reportMs_ = record.endMs;
  }
  if (IsClassRequest(record.setup, DfuGetStatus) && record.data.size() >= 4) {
    asked_[record.threadId] = {record.endMs, record.endMs + PollTimeoutIn(record.data)};
  }
}

void UpdateAccount::CountBlock(const platform::TransferRecord& record) {
  if (IsClassRequest(record.setup, DfuDnload)) {
    blockOpen_ = record.setup.Value >= FirstDataBlock && !record.data.empty();
    counts_.dataBlocks += blockOpen_ ? 1 : 0;
    counts_.dataBlockTransfers += blockOpen_ ? 1 : 0;
  } else if (blockOpen_) {
    ++counts_.dataBlockTransfers;
    blockOpen_ = record.data.size() < 5 || record.data[4] == dfuDNBUSY;
  }
}

// A device is asked anew, or its operation ends: what it asked for before counts up to here.
void UpdateAccount::EndPoll(u32 threadId, u64 nowMs) {
  const auto found = asked_.find(threadId);
  if (found != asked_.end()) {
    stretches_.push_back({Poll, found->second.fromMs, std::min(found->second.toMs, nowMs)});
    asked_.erase(found);
  }
}

// An operation's thread ends by this call, right after it has published its end.
void UpdateAccount::NoteCall(platform::Call call) {
  ++platformCalls_;
  deviceOpens_ += call == platform::Call::WinUsb_Initialize ? 1 : 0;
  if (call == platform::Call::ExitThread) {
    const u64 nowMs = machine_.scheduler.NowMs();
    const std::scoped_lock hold(lock_);
    EndPoll(platform::Scheduler::Current()->id(), nowMs);
    operationEnds_.push_back(nowMs);
  }
}

void UpdateAccount::NoteWait(const platform::WaitRecord& wait) {
  const std::scoped_lock hold(lock_);
  if (startUpDelays_ < std::size(StartUpDelaysMs) &&
      wait.timeoutMs == StartUpDelaysMs[startUpDelays_]) {
    ++startUpDelays_;
    stretches_.push_back({Delay, wait.startMs, wait.endMs});
  } else if (wait.timeoutMs == TickMs && !asked_.contains(wait.threadId)) {
    for (const u64 endedMs : operationEnds_) {
      stretches_.push_back({Tick, endedMs, wait.endMs});
    }
    operationEnds_.clear();
  }
}

AccountFigures UpdateAccount::Close(u64 fromMs, u64 toMs) const {
  const std::scoped_lock hold(lock_);
  struct Border {
    u64 atMs;
    Kind kind;
    i32 step;
  };
  std::vector<Border> borders = {{toMs, Wire, 0}};
  const auto add = [&](const Stretch& stretch) {
    const u64 begin = std::max(stretch.fromMs, fromMs);
    const u64 end = std::min(stretch.toMs, toMs);
    if (begin < end) {
      borders.push_back({begin, stretch.kind, 1});
      borders.push_back({end, stretch.kind, -1});
    }
  };
  std::for_each(stretches_.begin(), stretches_.end(), add);
  for (const u64 endedMs : operationEnds_) {
    add({Tick, endedMs, toMs});
  }
  if (away_) {
    add({Away, awayFromMs_, toMs});
  }
  std::sort(borders.begin(), borders.end(),
            [](const Border& a, const Border& b) { return a.atMs < b.atMs; });

  std::array<i32, KindCount> open{};
  std::array<u64, KindCount + 1> spentMs{};  // the last one is what is left over
  u64 atMs = fromMs;
  for (const Border& border : borders) {
    const auto holds = std::find_if(open.begin(), open.end(), [](i32 n) { return n > 0; });
    spentMs[static_cast<std::size_t>(holds - open.begin())] += border.atMs - atMs;
    open[border.kind] += border.step;
    atMs = border.atMs;
  }

  AccountFigures figures = counts_;
  figures.wireMs = spentMs[Wire];
  figures.pollMs = spentMs[Poll];
  figures.awayMs = spentMs[Away];
  figures.delayMs = spentMs[Delay] + spentMs[Tick];
  figures.tickMs = spentMs[Tick];
  figures.elseMs = spentMs[KindCount];
  figures.deviceOpens = deviceOpens_;
  figures.platformCalls = platformCalls_;
  return figures;
}

void WriteAccount(const AccountFigures& figures, std::FILE* stream) {
  const auto write = [&](const char* what, u64 milliseconds) {
    std::fprintf(stream, "    %12s  %s\n", SecondsText(milliseconds).c_str(), what);
  };
  std::fprintf(stream, "  where the time went\n");
  write("delays that the service always makes", figures.delayMs);
  write("keyboard erasing and writing, as it asked for", figures.pollMs);
  write("transfers on the wire", figures.wireMs);
  write("keyboard away, restarting", figures.awayMs);
  write("anything else", figures.elseMs);
  std::string transfers;
  for (const auto& [request, count] : figures.transfers) {
    transfers += (transfers.empty() ? "" : ", ") + std::to_string(count) + " " + request;
  }
  std::fprintf(stream, "  what it took\n    %s\n", transfers.c_str());
  if (figures.dataBlocks != 0) {
    std::fprintf(
        stream, "    %.2f transfers for each of %s data blocks\n",
        static_cast<double>(figures.dataBlockTransfers) / static_cast<double>(figures.dataBlocks),
        CountText(figures.dataBlocks).c_str());
  }
  std::fprintf(stream, "    %s opens of the device, %s platform calls\n",
               CountText(figures.deviceOpens).c_str(), CountText(figures.platformCalls).c_str());
}

Json DescribeAccount(const AccountFigures& figures) {
  return {{"delayMs", figures.delayMs},         {"pollMs", figures.pollMs},
          {"wireMs", figures.wireMs},           {"awayMs", figures.awayMs},
          {"anythingElseMs", figures.elseMs},   {"transfers", figures.transfers},
          {"dataBlocks", figures.dataBlocks},   {"dataBlockTransfers", figures.dataBlockTransfers},
          {"deviceOpens", figures.deviceOpens}, {"platformCalls", figures.platformCalls}};
}

}  // namespace simulator
