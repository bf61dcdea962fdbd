#include "proof/judge_flash.h"

#include <cstring>

#include "proof/trial_report.h"
#include "simulator/tablet.h"
#include "simulator/virtual_keyboard.h"

namespace proof {

namespace {

std::string Hex(u32 value, int digits) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%0*X", digits, value);
  return text;
}

// Which values a byte may have: what it had, and if the keyboard may change, what the package says
// or none.
std::string AllowedText(u8 before, u8 wanted, bool mayChange) {
  std::string text = "the old " + Hex(before, 2);
  if (mayChange && before != 0xFF) {
    text += " or 0xFF";
  }
  if (mayChange && wanted != 0xFF) {
    text += " or the package's " + Hex(wanted, 2);
  }
  return text;
}

}  // namespace

// What an update should leave is drawn up from the package alone, on an erased flash.
FlashJudge::FlashJudge(Stage& stage, const TrialPlan& plan, const NorFlash& originalFlash)
    : stage_(stage), plan_(plan), original_(originalFlash), wanted_(originalFlash) {
  wanted_.EraseAll();
  for (const DfuSeElement& element : TargetForUpdate(plan_.package.contents)->elements) {
    wanted_.Program(element.address, element.data);
  }
}

// The first DNLOAD of another thread shows that the operation before it is over.
std::string FlashJudge::See(const platform::TransferRecord& record) {
  if (record.setup.RequestType != HostToInterface || record.setup.Request != DfuDnload ||
      record.path.find(u"hid#") != std::u16string::npos) {
    return {};
  }
  {
    const std::scoped_lock lock(lock_);
    if (downloader_ == record.threadId) {
      return {};
    }
    downloader_ = record.threadId;
  }
  return Look();
}

// Two threads may find the same fault at once; one of them tells it.
std::string FlashJudge::Look() {
  if (hasTold_) {
    return {};
  }
  std::string fault = LookAt(stage_.keyboard, plan_.expectsUpdate);
  if (fault.empty() && HasSecond(plan_)) {
    fault = LookAt(stage_.second, true);  // in DFU mode versions do not count
  }
  return fault.empty() || hasTold_.exchange(true) ? std::string()
                                                  : At(stage_.tablet.nowMs()) + fault;
}

// Most sectors are untouched most of the time, and whole sectors are quickly compared.
std::string FlashJudge::LookAt(const VirtualKeyboard& keyboard, bool mayChange) const {
  const NorFlash flash = keyboard.ReadFlash();
  for (const FlashSector& sector : flash.sectors()) {
    if (std::memcmp(flash.bytes().data() + sector.offset, original_.bytes().data() + sector.offset,
                    sector.sizeBytes) == 0) {
      continue;
    }
    if (std::string fault = Compare(sector, flash, mayChange); !fault.empty()) {
      return fault;
    }
  }
  return {};
}

std::string FlashJudge::Compare(const FlashSector& sector, const NorFlash& flash,
                                bool mayChange) const {
  const u8* const held = flash.bytes().data() + sector.offset;
  const u8* const before = original_.bytes().data() + sector.offset;
  const u8* const wanted = wanted_.bytes().data() + sector.offset;
  for (std::size_t i = 0; i < sector.sizeBytes; ++i) {
    const bool isPackages = held[i] == 0xFF || held[i] == wanted[i];
    if (held[i] != before[i] && !(mayChange && isPackages)) {
      return "expected " + AllowedText(before[i], wanted[i], mayChange) + " at " +
             Hex(static_cast<u32>(sector.address + i), 8) + ", found " + Hex(held[i], 2);
    }
  }
  return {};
}

}  // namespace proof
