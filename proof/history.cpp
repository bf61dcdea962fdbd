#include "proof/history.h"

#include <algorithm>
#include <cstring>

#include "platform/machine/machine.h"
#include "platform/machine/text.h"
#include "simulator/dfu_descriptors.h"
#include "simulator/hid_side.h"

namespace proof {

namespace {

// What Windows tells when it does not know; a reading that fails counts for it.
constexpr BYTE UnknownCharge = 255;

}  // namespace

void History::Watch() {
  watching_ = {
      machine_.transfers.Observe(
          [this](const platform::TransferRecord& record) { Add(TransferEvent(record)); }),
      machine_.processes.launches.Observe([this](const platform::LaunchedProcess& launch) {
        Add({.what = Happening::Word, .text = platform::Utf8FromWide(launch.commandLine)});
      }),
      machine_.power.readings.Observe([this](const platform::PowerReading& reading) {
        Add({.what = Happening::BatteryRead, .value = reading.percent.value_or(UnknownCharge)});
      }),
      machine_.services.reports.Observe([this](const platform::StatusReport& report) {
        Add({.what = Happening::Reported, .value = report.status.dwCurrentState});
      }),
      machine_.notifications.events.Observe(
          [this](const platform::NoticeEvent& notice) { AddNotice(notice); }),
      machine_.gate.troubles.Observe(
          [this](const platform::CallTrouble& trouble) { AddCallTrouble(trouble); }),
  };
}

// Observers that are being told may come in later still.
void History::Close() {
  watching_.clear();
  const std::scoped_lock lock(lock_);
  closed_ = true;
}

// A notice is three events: told to nobody yet, handed over, and done with.
void History::AddNotice(const platform::NoticeEvent& notice) {
  Event event;
  event.what = notice.stage == platform::NoticeStage::Announced ? Happening::Announced
               : notice.stage == platform::NoticeStage::Handed  ? Happening::NoticeBegins
                                                                : Happening::NoticeEnds;
  event.value = notice.notice.action == CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL ? 1 : 0;
  event.unit = UnitOf(notice.notice.path);
  event.side = SideOf(notice.notice.classGuid);
  Add(event);
}

// Only what a judge may excuse something by. A hold is kept apart, because it has a length.
void History::AddCallTrouble(const platform::CallTrouble& trouble) {
  if (trouble.kind == platform::CallTrouble::Kind::Failed) {
    Add({.what = Happening::CallFailed, .call = trouble.call});
  } else if (trouble.kind == platform::CallTrouble::Kind::Held) {
    const std::scoped_lock lock(lock_);
    if (!closed_) {
      holds_.push_back({trouble.threadId, trouble.timeMs, trouble.untilMs});
    }
  }
}

// The time is taken under the lock, so that the events stand in the order of their times.
void History::Add(Event event) {
  if (event.threadId == 0) {
    event.threadId = platform::Scheduler::Current()->id();
  }
  const std::scoped_lock lock(lock_);
  if (!closed_) {
    event.timeMs = machine_.scheduler.NowMs();
    events_.push_back(std::move(event));
  }
}

std::size_t History::holds() const {
  const std::scoped_lock lock(lock_);
  return holds_.size();
}

u64 History::HeldMs(u64 fromMs, u64 toMs) const {
  u64 heldMs = 0;
  for (const Hold& hold : holds_) {
    const u64 from = std::max(fromMs, hold.fromMs);
    const u64 to = std::min(toMs, hold.toMs);
    heldMs += from < to ? to - from : 0;
  }
  return heldMs;
}

// By the part of the path that Windows makes from the device's place; the rest is the same for
// both.
Unit UnitOf(const std::u16string& path) {
  if (path.find(FirstUnit) != std::u16string::npos) {
    return Unit::First;
  }
  return path.find(SecondUnit) != std::u16string::npos ? Unit::Second : Unit::Other;
}

Side SideOf(const GUID& classGuid) {
  const auto is = [&](const GUID& other) {
    return std::memcmp(&classGuid, &other, sizeof(GUID)) == 0;
  };
  if (is(DfuModeInterfaceGuid)) {
    return Side::Dfu;
  }
  return is(KeyboardInterfaceGuid)        ? Side::Keyboard
         : is(platform::HidInterfaceGuid) ? Side::Hid
                                          : Side::Other;
}

Event TransferEvent(const platform::TransferRecord& record) {
  Event event;
  event.what = Happening::Transfer;
  event.threadId = record.threadId;
  event.unit = UnitOf(record.path);
  event.side = record.path.find(u"hid#") == std::u16string::npos ? Side::Dfu : Side::Hid;
  event.transfer = record;
  return event;
}

}  // namespace proof
