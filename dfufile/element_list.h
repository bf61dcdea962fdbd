// The elements of an image, in the order in which an operation walks them.
//
// The list owns the records and their bytes. A record stays where it is until the list goes,
// whatever is inserted before it, so that what has been told of its place holds.
#pragma once

#include "common/growable_list.h"
#include "common/types.h"
#include "dfufile/address_range.h"

struct DfuElement {
  u32 Address;
  // In bytes.
  u32 Size;
  // Size bytes, new[], which go with the list; null when Size is 0. In an erase list every element
  // is empty and names the start of a sector.
  u8* Data;
};

inline AddressRange RangeOf(const DfuElement& element) {
  return RangeAt(element.Address, element.Size);
}

class ElementList {
 public:
  ElementList() = default;
  ElementList(const ElementList&) = delete;
  ElementList& operator=(const ElementList&) = delete;
  ~ElementList();

  // Makes a record at position; position size() appends. It has no bytes yet: Data is null.
  // Returns the record, or null with the list as before when the position is beyond the end or
  // memory is refused.
  DfuElement* Insert(u32 position, u32 address, u32 size);

  // As Insert, with size bytes of whatever content.
  DfuElement* InsertWithBytes(u32 position, u32 address, u32 size);

  // Turns the order round.
  void Reverse();

  void Swap(ElementList& other) { records_.Swap(other.records_); }

  u32 size() const { return records_.size(); }
  DfuElement& operator[](u32 position) { return *records_[position]; }
  const DfuElement& operator[](u32 position) const { return *records_[position]; }

 private:
  GrowableList<DfuElement*> records_;
};
