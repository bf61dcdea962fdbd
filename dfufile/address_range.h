// Stretches of a device's 32-bit address space, with the arithmetic that elements, sectors and
// regions share.
#pragma once

#include <algorithm>

#include "common/types.h"

// Covers [start, end). Both ends are 64 bits wide, so that a stretch may end at the very top of the
// address space, at 2^32.
struct AddressRange {
  u64 start;
  u64 end;
};

// The stretch of size bytes from address on. What would lie beyond the address space is left out.
constexpr AddressRange RangeAt(u32 address, u32 size) {
  constexpr u64 TopOfSpace = u64{1} << 32;
  return {address, std::min(u64{address} + size, TopOfSpace)};
}

// Both comparisons are strict: stretches that only meet do not overlap, while an empty one overlaps
// the stretch in whose inside it lies.
constexpr bool RangesOverlap(const AddressRange& a, const AddressRange& b) {
  return a.start < b.end && a.end > b.start;
}

// The part that two overlapping stretches have in common.
constexpr AddressRange CommonRange(const AddressRange& a, const AddressRange& b) {
  return {std::max(a.start, b.start), std::min(a.end, b.end)};
}
