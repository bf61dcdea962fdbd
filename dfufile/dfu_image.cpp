#include "dfufile/dfu_image.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "dfufile/address_range.h"

namespace {

AddressRange RangeOf(const DfuElement& element) {
  return RangeAt(element.Address, element.Size);
}

// Inserts a copy of element with data of its own. The image is as before when memory is short.
bool InsertCopy(DfuImage* image, u32 position, const DfuElement& element) {
  DfuElement copy = {element.Address, element.Size, nullptr};
  if (element.Size != 0) {
    copy.Data = new (std::nothrow) u8[element.Size];
    if (copy.Data == nullptr) {
      return false;
    }
    std::memcpy(copy.Data, element.Data, element.Size);
  }
  if (!image->Elements.Insert(position, copy)) {
    delete[] copy.Data;
    return false;
  }
  return true;
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

DfuImage::~DfuImage() {
  for (u32 i = 0; i < Elements.size(); ++i) {
    delete[] Elements[i].Data;
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
    if (!InsertCopy(clone, i, image->Elements[i])) {
      delete clone;
      return nullptr;
    }
  }
  return clone;
}

i32 InsertElement(DfuImage* image, u32 position, DfuElement element) {
  if (image->Valid == 0 || position > image->Elements.size() ||
      !InsertCopy(image, position, element)) {
    return 0;
  }
  // Standard output may be a pipe, where a line would wait in the buffer.
  DfuElement& newElement = image->Elements[position];
  std::printf("address of pNewElement = %p\n", static_cast<void*>(&newElement));
  std::fflush(stdout);
  std::printf("address of pNewElement->Data = %p\n", static_cast<void*>(&newElement.Data));
  std::fflush(stdout);
  return 1;
}

void RemoveElement(DfuImage* image, u32 position) {
  delete[] image->Elements[position].Data;
  image->Elements.Remove(position);
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

bool ImageTouchesRegion(const DfuImage* image, u32 start, u32 length) {
  if (image->Valid == 0) {
    return false;
  }
  const AddressRange region = RangeAt(start, length);
  for (u32 i = 0; i < image->Elements.size(); ++i) {
    if (RangesOverlap(RangeOf(image->Elements[i]), region)) {
      return true;
    }
  }
  return false;
}
