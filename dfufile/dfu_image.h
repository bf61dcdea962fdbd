// The firmware of one target in memory: an ordered list of elements, each a start address in the
// device's memory with the bytes to be placed there.
//
// The file reader, the image preparation and the session driver make and change images while they
// hold the update lock. An operation's thread only reads the image that it was given, and nobody
// changes or releases that image before the operation is finished.
#pragma once

#include "common/growable_list.h"
#include "common/types.h"

inline constexpr u32 ImageNameBytes = 255;

struct DfuElement {
  u32 Address;
  // In bytes.
  u32 Size;
  // Size bytes, new[], owned by the image that the element is in; null when Size is 0. An element
  // of size 0 in an erase list names the start of a sector to be erased.
  u8* Data;
};

class DfuImage {
 public:
  // name is taken when named is not 0: up to its NUL, or 254 of its bytes when there is none within
  // 255. It may be null when named is 0.
  DfuImage(u8 alternateSetting, u32 named, const char* name);
  // Frees the data of every element with the image.
  virtual ~DfuImage();

  DfuImage(const DfuImage&) = delete;
  DfuImage& operator=(const DfuImage&) = delete;

  // The alternate setting of the device that the image belongs to.
  u8 AlternateSetting;
  // In the order in which an operation walks them.
  GrowableList<DfuElement> Elements;
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

// Inserts a copy of element, with its own copy of the data, at position; position Elements.size()
// appends. The caller keeps the bytes that it passed. Writes two lines to standard output that tell
// where the new element and its Data field are.
//
// Returns 1, or 0 with the image unchanged when it is not valid, the position is beyond the end or
// memory is short.
i32 InsertElement(DfuImage* image, u32 position, DfuElement element);

// Takes the element at position, which is in the list, out of the image and frees its data.
void RemoveElement(DfuImage* image, u32 position);

// Fills buffer, length bytes long, with the image's content from the address start on: the
// elements' bytes, and 0xFF where there are none. Where elements cover the same address the one
// earlier in the list supplies the byte.
//
// Returns 1, or 0 with the buffer untouched when no element overlaps the region or the image is not
// valid.
i32 ReadImageRegion(const DfuImage* image, u32 start, u32 length, u8* buffer);

// Tells whether any element overlaps the region of length bytes from start on; ReadImageRegion
// would return 1 for it. False for an image that is not valid.
bool ImageTouchesRegion(const DfuImage* image, u32 start, u32 length);
