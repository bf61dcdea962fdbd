// Finds which of many stretches of the address space overlap a given one, without looking at all.
//
// A search costs the logarithm of how many there are, for each stretch that it finds; the stretches
// may overlap one another and come in any order. For one image cut at a time, under the update
// lock.
#pragma once

#include <memory>

#include "common/types.h"
#include "dfufile/address_range.h"

class RangeIndex {
 public:
  // Takes memory for at most this many stretches. False when it is refused. Called first, once.
  bool Reserve(u32 count);

  // Adds a stretch under a number of the caller's. An empty one lies between its neighbours, as
  // RangesOverlap has it.
  void Add(const AddressRange& range, u32 number);

  // To be called when all are added, before the first search.
  void Sort();

  // Whether any stretch overlaps the range.
  bool Touches(const AddressRange& range) const;

  // Collects the stretches that overlap the range and returns how many there are; found tells their
  // numbers in ascending order until the next search.
  u32 Find(const AddressRange& range);
  u32 found(u32 position) const { return found_[position]; }

 private:
  // Sorted by where they start. The middle entry of a part is the root of a search tree over it.
  struct Entry {
    AddressRange range;
    // The furthest end among the entries of the part of which this one is the middle.
    u64 furthestEnd;
    u32 number;
  };

  u64 NoteFurthestEnds(u32 from, u32 to);
  template <class Visit>
  bool Walk(const AddressRange& range, u32 from, u32 to, Visit visit) const;

  std::unique_ptr<Entry[]> entries_;
  std::unique_ptr<u32[]> found_;
  u32 entryCount_ = 0;
};
