// The four digits by which a keyboard's firmware and a firmware package are compared.
//
// keyboard/ fills one record from the keyboard's product string, service/ another one from the
// package's file name. Both texts carry the digits at the same character positions.
#pragma once

#include <cstddef>

#include "common/types.h"

struct FirmwareVersion {
  i32 major;
  i32 minor;
  i32 modelId;
  i32 hwRev;
};

// Character positions of the digits, counted from 0, in the product string and the file name.
inline constexpr std::size_t MajorPosition = 10;
inline constexpr std::size_t MinorPosition = 12;
inline constexpr std::size_t ModelIdPosition = 14;
inline constexpr std::size_t HwRevPosition = 16;
