#include "dfufile/image_cuts.h"

#include <cstring>
#include <new>

#include "common/growable_list.h"
#include "common/status.h"
#include "dfufile/address_range.h"
#include "dfufile/image_registry.h"

namespace {

// The operation codes that choose sectors by an access right.
constexpr u32 KeepNothing = 0;
constexpr u32 KeepReadable = 1;
constexpr u32 KeepReadableToo = 2;
constexpr u32 ListErasable = 3;
constexpr u32 KeepWritable = 4;

bool TakesPart(const MemorySector& sector, u32 operationCode) {
  if (sector.selected == 0) {
    return false;
  }
  const u32 access = static_cast<u8>(sector.attributes);
  switch (operationCode) {
    case KeepNothing:
      return false;
    case KeepReadable:
    case KeepReadableToo:
      return (access & SectorReadable) != 0;
    case ListErasable:
      return (access & SectorErasable) != 0;
    case KeepWritable:
      return (access & SectorWritable) != 0;
    default:
      return true;
  }
}

// Replaces the element at position by its pieces in the sectors that take part. Each piece goes in
// front of those made before, from sectors further on, so the pieces stand in the map's order.
bool CutElement(DfuImage* image, u32 position, const MemoryMap& map, u32 operationCode) {
  // A copy of the record, which moves up with every piece; its data stay where they are.
  const DfuElement element = image->Elements[position];
  const AddressRange whole = RangeAt(element.Address, element.Size);
  u32 pieceCount = 0;
  for (u32 i = map.sectorCount; i-- > 0;) {
    const MemorySector& sector = map.sectors[i];
    const AddressRange covered = RangeAt(sector.address, sector.size);
    if (!TakesPart(sector, operationCode) || !RangesOverlap(whole, covered)) {
      continue;
    }
    // Both ranges are those of 32-bit records, so the start and the size of what they share fit.
    const AddressRange common = CommonRange(whole, covered);
    const DfuElement piece = {static_cast<u32>(common.start),
                              static_cast<u32>(common.end - common.start),
                              element.Data + (common.start - element.Address)};
    if (InsertElement(image, position, piece) == 0) {
      return false;
    }
    ++pieceCount;
  }
  RemoveElement(image, position + pieceCount);
  return true;
}

bool CutToSectors(DfuImage* image, const MemoryMap& map, u32 operationCode) {
  for (u32 i = image->Elements.size(); i-- > 0;) {
    if (!CutElement(image, i, map, operationCode)) {
      return false;
    }
  }
  return true;
}

void RemoveAllElements(DfuImage* image) {
  while (image->Elements.size() != 0) {
    RemoveElement(image, image->Elements.size() - 1);
  }
}

// Turns the image into the list of the erasable sectors that it touches. All sectors are tested
// before the first element goes.
bool CutToEraseList(DfuImage* image, const MemoryMap& map) {
  GrowableList<DfuElement> entries;
  for (u32 i = 0; i < map.sectorCount; ++i) {
    const MemorySector& sector = map.sectors[i];
    if (TakesPart(sector, ListErasable) && ImageTouchesRegion(image, sector.address, sector.size) &&
        !entries.Insert(entries.size(), {sector.address, 0, nullptr})) {
      return false;
    }
  }
  RemoveAllElements(image);
  for (u32 i = 0; i < entries.size(); ++i) {
    if (!image->Elements.Insert(i, entries[i])) {
      return false;
    }
  }
  return true;
}

bool AppendBlankElement(DfuImage* image, const MemorySector& sector) {
  DfuElement element = {sector.address, sector.size, nullptr};
  if (sector.size != 0) {
    element.Data = new (std::nothrow) u8[sector.size];
    if (element.Data == nullptr) {
      return false;
    }
    std::memset(element.Data, 0xFF, sector.size);
  }
  if (!image->Elements.Insert(image->Elements.size(), element)) {
    delete[] element.Data;
    return false;
  }
  return true;
}

bool AppendBlankElements(DfuImage* image, const MemoryMap& map) {
  u64 bytes = 0;
  for (u32 i = 0; i < map.sectorCount; ++i) {
    const MemorySector& sector = map.sectors[i];
    if (sector.selected == 0) {
      continue;
    }
    bytes += sector.size;
    if (bytes > BlankImageMaxBytes || !AppendBlankElement(image, sector)) {
      return false;
    }
  }
  return true;
}

}  // namespace

u32 FitImageToMemoryMap(DfuImage* image, const MemoryMap* map, u32 operationCode) {
  if (map == nullptr || !IsRegisteredImage(image) || image->Valid == 0) {
    return StatusNoImage;
  }
  const bool done = operationCode == ListErasable ? CutToEraseList(image, *map)
                                                  : CutToSectors(image, *map, operationCode);
  if (!done) {
    image->Valid = 0;
    return StatusNoImage;
  }
  return StatusSuccess;
}

u32 BlankImageFromMemoryMap(DfuImage** image, const MemoryMap* map) {
  if (map == nullptr) {
    return StatusNoImage;
  }
  DfuImage* blank = new (std::nothrow) DfuImage(map->alternateSetting, 0, nullptr);
  if (blank == nullptr) {
    return StatusNoImage;
  }
  if (!AppendBlankElements(blank, *map)) {
    delete blank;
    return StatusNoImage;
  }
  RegisterImage(&blank);
  *image = blank;
  return StatusSuccess;
}
