#include "dfufile/dfu_image.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "dfufile/address_range.h"

namespace {

// Null, and the list as before, when the position is beyond the end or memory is short.
DfuElement* InsertCopy(ElementList& elements, u32 position, const DfuElement& element) {
  if (element.Data == nullptr) {
    return elements.Insert(position, element.Address, element.Size);
  }
  DfuElement* const copy = elements.InsertWithBytes(position, element.Address, element.Size);
  if (copy != nullptr && copy->Data != nullptr) {
    std::memcpy(copy->Data, element.Data, element.Size);
  }
  return copy;
}

}  // namespace

DfuImage::DfuImage(u8 alternateSetting, u32 named, const char* name)
    : AlternateSetting(alternateSetting), Named(named) {
  if (named == 0) {
    return;
  }
  for (u32 i = 0; i < ImageNameBytes - 1 && name[i] != 0; ++i) {
    Name[i] = name[i];
  }
}

DfuImage* CloneImage(const DfuImage* image) {
  DfuImage* const clone =
      new (std::nothrow) DfuImage(image->AlternateSetting, image->Named, image->Name);
  if (clone == nullptr) {
    return nullptr;
  }
  clone->Valid = image->Valid;
  for (u32 i = 0; i < image->Elements.size(); ++i) {
    if (InsertCopy(clone->Elements, i, image->Elements[i]) == nullptr) {
      delete clone;
      return nullptr;
    }
  }
  return clone;
}

i32 InsertElement(DfuImage* image, u32 position, DfuElement element) {
  if (image->Valid == 0) {
    return 0;
  }
  DfuElement* const newElement = InsertCopy(image->Elements, position, element);
  if (newElement == nullptr) {
    return 0;
  }
  // Standard output may be a pipe, where a line would wait in the buffer.
  std::printf("address of pNewElement = %p\n", static_cast<void*>(newElement));
  std::fflush(stdout);
  std::printf("address of pNewElement->Data = %p\n", static_cast<void*>(&newElement->Data));
  std::fflush(stdout);
  return 1;
}

i32 ReadImageRegion(const DfuImage* image, u32 start, u32 length, u8* buffer) {
  if (image->Valid == 0) {
    return 0;
  }
  const AddressRange region = RangeAt(start, length);
  bool found = false;
  // Backwards, so that what stands earlier in the list is copied last and wins.
  for (u32 i = image->Elements.size(); i-- > 0;) {
    const DfuElement& element = image->Elements[i];
    if (!RangesOverlap(RangeOf(element), region)) {
      continue;
    }
    if (!found) {
      std::memset(buffer, 0xFF, length);
      found = true;
    }
    const AddressRange common = CommonRange(RangeOf(element), region);
    std::copy(element.Data + (common.start - element.Address),
              element.Data + (common.end - element.Address), buffer + (common.start - start));
  }
  return found ? 1 : 0;
}
