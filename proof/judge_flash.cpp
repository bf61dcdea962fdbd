#include "proof/judge_flash.h"

#include <cstring>

#include "simulator/timeline.h"

namespace proof {

namespace {

std::string Hex(u32 value, int digits) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%0*X", digits, value);
  return text;
}

}  // namespace

FlashJudge::FlashJudge(Stage& stage, const TrialPlan& plan, const NorFlash& originalFlash)
    : stage_(stage), plan_(plan), original_(originalFlash), wanted_(originalFlash) {
  wanted_.EraseAll();
  for (const DfuSeElement& element : TargetForUpdate(plan_.package.contents)->elements) {
    wanted_.Program(element.address, element.data);
  }
}

void FlashJudge::See(const platform::TransferRecord& record) {
  if (record.setup.RequestType != 0x21 || record.setup.Request != DfuDnload ||
      record.path.find(u"hid#") != std::u16string::npos) {
    return;
  }
  {
    const std::scoped_lock lock(lock_);
    if (downloader_ == record.threadId) {
      return;
    }
    downloader_ = record.threadId;
  }
  Look();
}

void FlashJudge::Look() {
  LookAt(stage_.keyboard, plan_.expectsUpdate);
  LookAt(stage_.second, true);  // in DFU mode versions do not count
}

void FlashJudge::LookAt(const VirtualKeyboard& keyboard, bool mayChange) {
  const NorFlash flash = keyboard.ReadFlash();
  for (const FlashSector& sector : flash.sectors()) {
    if (std::memcmp(flash.bytes().data() + sector.offset, original_.bytes().data() + sector.offset,
                    sector.sizeBytes) != 0) {
      Compare(sector, flash, mayChange);
    }
  }
}

void FlashJudge::Compare(const FlashSector& sector, const NorFlash& flash, bool mayChange) {
  const u8* const held = flash.bytes().data() + sector.offset;
  const u8* const before = original_.bytes().data() + sector.offset;
  const u8* const wanted = wanted_.bytes().data() + sector.offset;
  for (std::size_t i = 0; i < sector.sizeBytes; ++i) {
    const bool isPackages = held[i] == 0xFF || held[i] == wanted[i];
    if (held[i] == before[i] || (mayChange && isPackages)) {
      continue;
    }
    const std::string allowed =
        mayChange ? Hex(before[i], 2) + ", " + Hex(wanted[i], 2) + " or 0xFF" : Hex(before[i], 2);
    const std::string what = "expected " + allowed + " at " +
                             Hex(static_cast<u32>(sector.address + i), 8) + ", found " +
                             Hex(held[i], 2);
    const std::scoped_lock lock(lock_);
    faults_.push_back("at " + SecondsText(stage_.tablet.nowMs()) + ": " + what);
    return;
  }
}

std::vector<std::string> FlashJudge::faults() const {
  const std::scoped_lock lock(lock_);
  return faults_;
}

}  // namespace proof
