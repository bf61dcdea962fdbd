#include "dfufile/image_cuts.h"

#include <cstring>
#include <new>
#include <utility>

#include "common/status.h"
#include "dfufile/address_range.h"
#include "dfufile/image_registry.h"
#include "dfufile/operation_codes.h"
#include "dfufile/range_index.h"

namespace {

bool TakesPart(const MemorySector& sector, u32 operationCode) {
  if (sector.selected == 0) {
    return false;
  }
  const u32 access = static_cast<u8>(sector.attributes);
  switch (operationCode) {
    case OperationNone:
      return false;
    case OperationLeave:
    case OperationRefused:
      return (access & SectorReadable) != 0;
    case OperationErase:
      return (access & SectorErasable) != 0;
    case OperationDownload:
      return (access & SectorWritable) != 0;
    default:
      return true;
  }
}

AddressRange RangeOf(const MemorySector& sector) {
  return RangeAt(sector.address, sector.size);
}

bool IndexSectors(const MemoryMap& map, u32 operationCode, RangeIndex& sectors) {
  if (!sectors.Reserve(map.sectorCount)) {
    return false;
  }
  for (u32 i = 0; i < map.sectorCount; ++i) {
    if (TakesPart(map.sectors[i], operationCode)) {
      sectors.Add(RangeOf(map.sectors[i]), i);
    }
  }
  sectors.Sort();
  return true;
}

bool IndexElements(const ElementList& image, RangeIndex& elements) {
  if (!elements.Reserve(image.size())) {
    return false;
  }
  for (u32 i = 0; i < image.size(); ++i) {
    elements.Add(RangeOf(image[i]), i);
  }
  elements.Sort();
  return true;
}

// Appends the pieces of an element, the one in the map's last sector first. An element that is a
// piece of its own is appended without bytes: HandOverBytes gives it those of the element.
bool AppendPieces(const DfuElement& element, const MemoryMap& map, RangeIndex& sectors,
                  DfuImage& pieces) {
  const AddressRange whole = RangeOf(element);
  const u32 pieceCount = sectors.Find(whole);
  for (u32 i = pieceCount; i-- > 0;) {
    const AddressRange common = CommonRange(whole, RangeOf(map.sectors[sectors.found(i)]));
    // Both ranges are those of 32-bit records, so the start and the size of what they share fit.
    DfuElement piece = {static_cast<u32>(common.start), static_cast<u32>(common.end - common.start),
                        nullptr};
    if (pieceCount != 1 || piece.Size != element.Size) {
      piece.Data = element.Data + (common.start - element.Address);
    }
    if (InsertElement(&pieces, pieces.Elements.size(), piece) == 0) {
      return false;
    }
  }
  return true;
}

// Gives each piece that has no bytes those of its element. Pieces and elements are in one order,
// and elements of the same place and size are all cut alike, so the next such element is the one.
void HandOverBytes(ElementList& elements, ElementList& pieces) {
  u32 next = 0;
  for (u32 i = 0; i < pieces.size(); ++i) {
    DfuElement& piece = pieces[i];
    if (piece.Size == 0 || piece.Data != nullptr) {
      continue;
    }
    while (elements[next].Address != piece.Address || elements[next].Size != piece.Size) {
      ++next;
    }
    std::swap(piece.Data, elements[next].Data);
    ++next;
  }
}

// Replaces each element by its pieces in the sectors that take part. They are made aside, from the
// last to the first, and the image changes when nothing can fail any more.
bool CutToSectors(DfuImage* image, const MemoryMap& map, u32 operationCode) {
  RangeIndex sectors;
  DfuImage pieces(image->AlternateSetting, 0, nullptr);
  if (!IndexSectors(map, operationCode, sectors)) {
    return false;
  }
  for (u32 i = image->Elements.size(); i-- > 0;) {
    if (!AppendPieces(image->Elements[i], map, sectors, pieces)) {
      return false;
    }
  }
  pieces.Elements.Reverse();
  HandOverBytes(image->Elements, pieces.Elements);
  image->Elements.Swap(pieces.Elements);
  return true;
}

// Makes the list of the sectors to erase aside, too.
bool CutToEraseList(DfuImage* image, const MemoryMap& map) {
  RangeIndex elements;
  ElementList entries;
  if (!IndexElements(image->Elements, elements)) {
    return false;
  }
  for (u32 i = 0; i < map.sectorCount; ++i) {
    const MemorySector& sector = map.sectors[i];
    if (TakesPart(sector, OperationErase) && elements.Touches(RangeOf(sector)) &&
        entries.Insert(entries.size(), sector.address, 0) == nullptr) {
      return false;
    }
  }
  image->Elements.Swap(entries);
  return true;
}

bool AppendBlankElement(ElementList& elements, const MemorySector& sector) {
  const DfuElement* const blank =
      elements.InsertWithBytes(elements.size(), sector.address, sector.size);
  if (blank != nullptr && blank->Data != nullptr) {
    std::memset(blank->Data, 0xFF, blank->Size);
  }
  return blank != nullptr;
}

// Passes over what memory is refused for or what would be too much. The first element that a leave
// can use is never too much: without one the keyboard would stay in DFU mode. False when anything
// was passed over.
bool AppendBlankElements(ElementList& elements, const MemoryMap& map) {
  u64 bytes = 0;
  bool leaveHasOne = false;
  bool complete = true;
  for (u32 i = 0; i < map.sectorCount; ++i) {
    const MemorySector& sector = map.sectors[i];
    if (sector.selected == 0) {
      continue;
    }
    const bool serves = TakesPart(sector, OperationLeave) && sector.size != 0;
    const bool tooMuch = bytes + sector.size > BlankImageMaxBytes && (leaveHasOne || !serves);
    if (tooMuch || !AppendBlankElement(elements, sector)) {
      complete = false;
      continue;
    }
    bytes += sector.size;
    leaveHasOne = leaveHasOne || serves;
  }
  return complete;
}

}  // namespace

u32 FitImageToMemoryMap(DfuImage* image, const MemoryMap* map, u32 operationCode) {
  if (map == nullptr || !IsRegisteredImage(image) || image->Valid == 0) {
    return StatusNoImage;
  }
  const bool done = operationCode == OperationErase ? CutToEraseList(image, *map)
                                                    : CutToSectors(image, *map, operationCode);
  return done ? StatusSuccess : StatusNoImage;
}

u32 BlankImageFromMemoryMap(DfuImage** image, const MemoryMap* map) {
  if (map == nullptr) {
    return StatusNoImage;
  }
  DfuImage* blank = new (std::nothrow) DfuImage(map->alternateSetting, 0, nullptr);
  if (blank == nullptr) {
    return StatusNoImage;
  }
  const bool complete = AppendBlankElements(blank->Elements, *map);
  RegisterImage(&blank);
  *image = blank;
  return complete ? StatusSuccess : StatusNoImage;
}
