// Numbers that lie in bytes with the lowest byte first, as USB descriptors and DfuSe files have
// them.
#pragma once

#include "common/types.h"

// Reads two bytes.
constexpr u16 LittleEndian16(const u8* bytes) {
  return static_cast<u16>(bytes[0] | (bytes[1] << 8));
}

// Reads four bytes.
constexpr u32 LittleEndian32(const u8* bytes) {
  return u32{LittleEndian16(bytes)} | (u32{LittleEndian16(bytes + 2)} << 16);
}
