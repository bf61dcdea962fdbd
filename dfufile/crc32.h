// The checksum at the end of a firmware file: CRC-32 with the reflected polynomial 0xEDB88320,
// started with all ones and not inverted at the end, so the complement of what most tools call
// CRC-32.
#pragma once

#include <cstddef>

#include "common/types.h"

// The value to start with, and that of no bytes at all.
inline constexpr u32 Crc32Start = 0xFFFFFFFF;

// Returns the checksum of what crc covers followed by size bytes.
u32 ExtendCrc32(u32 crc, const u8* bytes, std::size_t size);
