// The firmware of one target, in memory: which bytes go where on the device.
//
// The file reader, the image preparation and the session driver make and change images while they
// hold the update lock. An operation's thread only reads the image that it was given, and nobody
// changes or releases that image before the operation is finished.
#pragma once

#include "common/types.h"
#include "dfufile/element_list.h"

inline constexpr u32 ImageNameBytes = 255;

class DfuImage {
 public:
  // name is taken when named is not 0: up to its NUL, or 254 of its bytes when there is none within
  // 255. It may be null when named is 0.
  DfuImage(u8 alternateSetting, u32 named, const char* name);
  // The elements and their bytes go with the image.
  virtual ~DfuImage() = default;

  DfuImage(const DfuImage&) = delete;
  DfuImage& operator=(const DfuImage&) = delete;

  // The alternate setting of the device that the image belongs to.
  u8 AlternateSetting;
  ElementList Elements;
  // 1 from construction on. An image with 0 is refused wherever work is to be done with it.
  u32 Valid = 1;
  // Not 0 when the target has a name.
  u32 Named;
  // NUL-terminated and zero-filled; empty when Named is 0.
  char Name[ImageNameBytes] = {};

  // Link of the image registry.
  DfuImage* nextInList = nullptr;
};

// Makes a copy of an image with everything that it holds, Valid included and valid or not. The copy
// is not registered and belongs to the caller (RegisterImage, or delete). Null when memory is
// short.
DfuImage* CloneImage(const DfuImage* image);

// Inserts a copy of element, with its own copy of the bytes, at position; position Elements.size()
// appends. The caller keeps the bytes that it passed. When it passes none for a Size above 0 the
// new element has none either, and the caller sees to it that it gets them. Writes two lines to
// standard output that tell where the new element and its Data field are.
//
// Returns 1, or 0 with the image unchanged when it is not valid, the position is beyond the end or
// memory is short.
i32 InsertElement(DfuImage* image, u32 position, DfuElement element);

// Fills buffer, length bytes long, with the image's content from the address start on: the
// elements' bytes, and 0xFF where there are none. Of elements that share an address the first in
// the list is the one that shows.
//
// Returns 1, or 0 with the buffer untouched when no element overlaps the region or the image is not
// valid.
i32 ReadImageRegion(const DfuImage* image, u32 start, u32 length, u8* buffer);
