#include "simulator/soak/judge.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "simulator/dfu_bootloader.h"
#include "simulator/soak/product_memory.h"
#include "simulator/timeline.h"

namespace simulator {

namespace {

// What the service opens once and keeps until its process ends.
const std::map<platform::HandleKind, std::size_t>& LongLivedHandles() {
  static const std::map<platform::HandleKind, std::size_t> Table = {
      {platform::HandleKind::Mutex, 2},         // the update lock, the order of reports
      {platform::HandleKind::Event, 1},         // of the tick thread
      {platform::HandleKind::File, 1},          // the keyboard's, of the last discovery
      {platform::HandleKind::Notification, 2},  // one a device interface class
      {platform::HandleKind::ServiceStatus, 1},
  };
  return Table;
}

bool IsDfuRequest(const platform::TransferRecord& record, u8 request) {
  return (record.setup.RequestType & 0x7F) == 0x21 && record.setup.Request == request &&
         record.path.find(u"hid#") == std::u16string::npos;
}

// An update begins by reading the device descriptor, and so does its leave.
bool IsRefresh(const platform::TransferRecord& record) {
  constexpr u16 DeviceDescriptor = 0x0100;
  return record.setup.RequestType == 0x80 && record.setup.Request == 6 &&
         record.setup.Value == DeviceDescriptor;
}

}  // namespace

Judge::Judge(Stage& stage, const TrialPlan& plan, const NorFlash& originalFlash)
    : stage_(stage), plan_(plan), original_(originalFlash), wanted_(originalFlash) {
  wanted_.EraseAll();
  for (const DfuSeElement& element : TargetForUpdate(plan_.package.contents)->elements) {
    wanted_.Program(element.address, element.data);
  }
}

void Judge::Violate(const std::string& what) {
  const std::string told = "at " + SecondsText(stage_.tablet.nowMs()) + ": " + what;
  const std::scoped_lock lock(lock_);
  violations_.push_back(told);
}

std::vector<std::string> Judge::violations() const {
  const std::scoped_lock lock(lock_);
  return violations_;
}

void Judge::NoteOccasions(u64 count) {
  const std::scoped_lock lock(lock_);
  occasions_ += count;
}

// One operation at a time: transfers to a DFU device never overlap, and a thread whose downloads
// were followed by another's sends no more.
void Judge::LookAtTransfer(const platform::TransferRecord& record) {
  if (record.path.find(u"hid#") != std::u16string::npos) {
    return;
  }
  bool overlapped = false;
  bool began = false;
  bool returned = false;
  {
    const std::scoped_lock lock(lock_);
    overlapped = record.startMs < lastTransferEndMs_ && record.threadId != lastTransferThread_;
    lastTransferEndMs_ = std::max(lastTransferEndMs_, record.endMs);
    lastTransferThread_ = record.threadId;
    NoteWait(record);
    if (IsRefresh(record)) {
      leftLast_ = false;
    } else if (IsDfuRequest(record, DfuDnload)) {
      leftLast_ = record.setup.Length == 0;
    }
    if (IsDfuRequest(record, DfuDnload) &&
        (downloaders_.empty() || downloaders_.back() != record.threadId)) {
      returned = std::find(downloaders_.begin(), downloaders_.end(), record.threadId) !=
                 downloaders_.end();
      began = true;
      downloaders_.push_back(record.threadId);
    }
  }
  if (overlapped) {
    Violate("two threads on the wire at once: " + DescribeTransfer(record));
  }
  if (began) {
    LookAtFlashes();
  }
  if (returned) {
    Violate("two operations at work on one device: " + DescribeTransfer(record));
  }
}

// How long the device asked to be left alone, as its last answer has it.
void Judge::NoteWait(const platform::TransferRecord& record) {
  constexpr std::size_t StatusBytes = 6;
  if (record.setup.RequestType == 0xA1 && record.setup.Request == DfuGetStatus &&
      record.data.size() == StatusBytes && record.data[4] == dfuDNBUSY) {
    leftAloneUntilMs_ =
        record.endMs + (record.data[1] | u32{record.data[2]} << 8 | u32{record.data[3]} << 16);
  } else {
    leftAloneUntilMs_ = 0;
  }
}

bool Judge::IsLeftAlone() const {
  const u64 nowMs = stage_.tablet.nowMs();
  const std::scoped_lock lock(lock_);
  return leftAloneUntilMs_ >= nowMs;
}

void Judge::ConcludeLife(bool quiet) {
  for (const std::string& fault : stage_.machine().faults.All()) {
    Violate(fault);
  }
  if (stage_.keyboard.strayDfuRequests() + stage_.second.strayDfuRequests() != 0) {
    Violate("a DFU request reached a keyboard that is not in DFU mode");
  }
  if (stage_.foreign.reports() != 0) {
    Violate("a report was sent to another maker's keyboard");
  }
  LookAtFlashes();
  LookAtWords();
  if (quiet && !IsLeftAlone()) {
    LookAtHandles();
    LookAtMemory();
  }
}

// After each operation that sent anything, because a later one may mend what one spoilt.
void Judge::LookAtFlashes() {
  LookAtFlash(stage_.keyboard, plan_.expectsUpdate);
  LookAtFlash(stage_.second, true);  // in DFU mode versions do not count
}

// Every byte is the package's, erased, or what it was before.
void Judge::LookAtFlash(const VirtualKeyboard& keyboard, bool mayChange) {
  const NorFlash flash = keyboard.ReadFlash();
  for (const FlashSector& sector : flash.sectors()) {
    const u8* const held = flash.bytes().data() + sector.offset;
    const u8* const before = original_.bytes().data() + sector.offset;
    const u8* const wanted = wanted_.bytes().data() + sector.offset;
    if (std::memcmp(held, before, sector.sizeBytes) == 0) {
      continue;
    }
    for (std::size_t i = 0; i < sector.sizeBytes; ++i) {
      const bool isPackages = held[i] == 0xFF || held[i] == wanted[i];
      if (held[i] != before[i] && !(mayChange && isPackages)) {
        char where[64];
        std::snprintf(where, sizeof(where), "0x%08zX",
                      static_cast<std::size_t>(sector.address) + i);
        Violate(std::string("the flash holds a byte that is not the package's at ") + where);
        return;
      }
    }
  }
}

void Judge::LookAtWords() {
  u64 starts = 0;
  u64 disconnects = 0;
  for (const ToldWord& told : stage_.tablet.WordsTold()) {
    starts += told.word == "START" ? 1 : 0;
    disconnects += told.word == "DISCONNECT" ? 1 : 0;
  }
  if (!plan_.expectsUpdate && starts != 0) {
    Violate("the user was told START although the package is not for this keyboard");
  }
  if (disconnects > occasions_ + starts) {
    Violate("the user was told DISCONNECT " + std::to_string(disconnects) + " times for " +
            std::to_string(occasions_ + starts) + " updates");
  }
}

void Judge::LookAtHandles() {
  std::map<platform::HandleKind, std::size_t> open;
  for (const platform::OpenHandle& handle : stage_.machine().handles.OpenHandles()) {
    ++open[handle.kind];
  }
  for (const auto& [kind, count] : open) {
    const auto allowed = LongLivedHandles().find(kind);
    if (count > (allowed == LongLivedHandles().end() ? 0 : allowed->second)) {
      Violate(std::to_string(count) + " " + platform::NameOf(kind) + " handles are left open");
    }
  }
  if (stage_.machine().heap.OpenBlocks() != 0) {
    Violate("blocks of the process heap were not freed");
  }
}

// The memory maps of the last device stay: an array, and a sector table for each setting. The image
// of an update that failed early stays, too, until the next one begins; so this asks only after one
// that went to its end.
void Judge::LookAtMemory() {
  const std::size_t blocks = ProductMemory().blocks;
  bool wentToItsEnd = false;
  {
    const std::scoped_lock lock(lock_);
    wentToItsEnd = leftLast_;
  }
  if (wentToItsEnd && blocks > 1 + plan_.keyboard.alternateSettings.size()) {
    Violate(std::to_string(blocks) + " blocks of memory were not freed");
  }
}

}  // namespace simulator
