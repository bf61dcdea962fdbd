#include "proof/update_script.h"

#include <algorithm>

namespace proof {

namespace {

// Whether the package writes to the sector. In 64 bits, because a sector may end where the address
// space does.
bool Touches(const DfuSeElement& element, const FlashSector& sector) {
  const u64 end = u64{element.address} + element.data.size();
  return element.address < u64{sector.address} + sector.sizeBytes && end > sector.address;
}

UpdateScript::Piece PieceOf(const DfuSeElement& element, const FlashSector& sector) {
  const u64 from = std::max<u64>(element.address, sector.address);
  const u64 to =
      std::min(u64{element.address} + element.data.size(), u64{sector.address} + sector.sizeBytes);
  const auto begin = element.data.begin();
  return {static_cast<u32>(from),
          {begin + static_cast<std::ptrdiff_t>(from - element.address),
           begin + static_cast<std::ptrdiff_t>(to - element.address)}};
}

}  // namespace

// Erased is what has a byte to be written and may be erased; written is what may be written, sector
// by sector within each element.
UpdateScript ScriptOf(const TrialPlan& plan) {
  UpdateScript script;
  script.transferSize = plan.keyboard.bootloader.transferSize;
  script.alternateSetting = plan.keyboard.alternateSettings.front().number;
  const std::vector<DfuSeElement>& elements = TargetForUpdate(plan.package.contents)->elements;
  const NorFlash flash(plan.keyboard.flash);
  for (const FlashSector& sector : flash.sectors()) {
    const auto touches = [&](const DfuSeElement& element) { return Touches(element, sector); };
    if (sector.isErasable() && std::any_of(elements.begin(), elements.end(), touches)) {
      script.erased.push_back(sector.address);
    }
  }
  for (const DfuSeElement& element : elements) {
    for (const FlashSector& sector : flash.sectors()) {
      if (sector.isWritable() && Touches(element, sector)) {
        script.written.push_back(PieceOf(element, sector));
      }
    }
  }
  return script;
}

}  // namespace proof
