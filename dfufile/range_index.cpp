#include "dfufile/range_index.h"

#include <algorithm>
#include <new>

namespace {

u32 MiddleOf(u32 from, u32 to) {
  return from + (to - from) / 2;
}

}  // namespace

bool RangeIndex::Reserve(u32 count) {
  entries_.reset(new (std::nothrow) Entry[count]);
  found_.reset(new (std::nothrow) u32[count]);
  return entries_ != nullptr && found_ != nullptr;
}

void RangeIndex::Add(const AddressRange& range, u32 number) {
  entries_[entryCount_] = {range, 0, number};
  ++entryCount_;
}

void RangeIndex::Sort() {
  std::sort(entries_.get(), entries_.get() + entryCount_,
            [](const Entry& a, const Entry& b) { return a.range.start < b.range.start; });
  NoteFurthestEnds(0, entryCount_);
}

// The parts are halved each time, so this goes down as many calls as the count has bits.
u64 RangeIndex::NoteFurthestEnds(u32 from, u32 to) {
  if (from == to) {
    return 0;
  }
  const u32 middle = MiddleOf(from, to);
  Entry& entry = entries_[middle];
  entry.furthestEnd =
      std::max({entry.range.end, NoteFurthestEnds(from, middle), NoteFurthestEnds(middle + 1, to)});
  return entry.furthestEnd;
}

// Visits what overlaps the range among the entries from `from` up to `to`, until a visit says that
// it is enough; true then.
template <class Visit>
bool RangeIndex::Walk(const AddressRange& range, u32 from, u32 to, Visit visit) const {
  if (from == to) {
    return false;
  }
  const u32 middle = MiddleOf(from, to);
  const Entry& entry = entries_[middle];
  // None of them reaches the range.
  if (entry.furthestEnd <= range.start) {
    return false;
  }
  if (Walk(range, from, middle, visit)) {
    return true;
  }
  // From the middle on they all start behind the range.
  if (entry.range.start >= range.end) {
    return false;
  }
  return (RangesOverlap(entry.range, range) && visit(entry.number)) ||
         Walk(range, middle + 1, to, visit);
}

bool RangeIndex::Touches(const AddressRange& range) const {
  return Walk(range, 0, entryCount_, [](u32) { return true; });
}

u32 RangeIndex::Find(const AddressRange& range) {
  u32 count = 0;
  Walk(range, 0, entryCount_, [&](u32 number) {
    found_[count] = number;
    ++count;
    return false;
  });
  std::sort(found_.get(), found_.get() + count);
  return count;
}
