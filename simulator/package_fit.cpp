#include "simulator/package_fit.h"

#include <algorithm>

#include "simulator/memory_map.h"
#include "simulator/number_text.h"

namespace simulator {

namespace {

// Where the sector ends that holds the address, or the next one begins.
// Bytes are counted stretch by stretch, from one border of a sector to the next: byte by byte takes
// long for large packages.
u64 NextBorder(const NorFlash& flash, const FlashSector* sector, u64 at) {
  u64 next = u64{1} << 32;
  for (const FlashSector& other : flash.sectors()) {
    next = other.address > at ? std::min<u64>(next, other.address) : next;
  }
  return sector == nullptr ? next : u64{sector->address} + sector->sizeBytes;
}

}  // namespace

std::vector<DroppedSpan> DroppedSpans(const std::vector<DfuSeElement>& elements,
                                      const NorFlash& flash) {
  std::vector<DroppedSpan> spans;
  for (const DfuSeElement& element : elements) {
    const u64 end = u64{element.address} + element.data.size();
    for (u64 at = element.address; at < end;) {
      const bool exists = at < AddressSpaceEnd;
      const FlashSector* const sector = exists ? flash.FindSector(static_cast<u32>(at)) : nullptr;
      const u64 next = exists ? std::min(NextBorder(flash, sector, at), end) : end;
      if (sector == nullptr || !sector->isWritable()) {
        if (spans.empty() || spans.back().address + spans.back().bytes != at) {
          spans.push_back({at, 0});
        }
        spans.back().bytes += next - at;
      }
      at = next;
    }
  }
  return spans;
}

NorFlash MemoryForUpdate(const KeyboardOptions& keyboard) {
  for (const AlternateSettingOptions& setting : keyboard.alternateSettings) {
    const std::optional<KeyboardMemory> memory =
        setting.number == 0 ? ReadMemoryMap(setting.mapString.value_or("")) : std::nullopt;
    if (memory.has_value()) {
      return NorFlash(memory->flash);
    }
  }
  return NorFlash(keyboard.flash);
}

// In the order of their addresses: a package may have tens of thousands.
std::string OverlapText(const std::vector<DfuSeElement>& elements) {
  std::vector<const DfuSeElement*> sorted;
  for (const DfuSeElement& element : elements) {
    sorted.push_back(&element);
  }
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const auto* a, const auto* b) { return a->address < b->address; });
  u64 end = 0;
  for (const DfuSeElement* element : sorted) {
    if (element->data.empty()) {
      continue;
    }
    if (element->address < end) {
      return "two of its elements overlap at " + AddressText(element->address);
    }
    end = u64{element->address} + element->data.size();
  }
  return "";
}

}  // namespace simulator
