// How firmware of the virtual keyboard lies in its flash, so that its bootloader can tell a whole
// image from a broken one and knows its version.
//
// The package builder makes images, the keyboard looks for them. An image starts with a record: the
// magic, the four version digits, the number of parts, address, size and CRC-32 of each part, and
// the CRC-32 of the record itself; numbers are little-endian. The first part starts with the
// record, and its CRC counts from behind it.
#pragma once

#include <optional>
#include <vector>

#include "common/types.h"
#include "simulator/dfuse_file.h"
#include "simulator/nor_flash.h"

namespace simulator {

// The digits of the product string and of the package's file name.
struct KeyboardVersion {
  u8 major = 0;
  u8 minor = 0;
  u8 modelId = 0;
  u8 hwRev = 0;

  bool operator==(const KeyboardVersion&) const = default;
};

// Firmware may lie in several places of the flash.
struct ImagePart {
  u32 address = 0;
  u32 sizeBytes = 0;
};

// How many bytes the first part of an image must have at the least.
std::size_t ImageRecordBytes(std::size_t partCount);

// Firmware that fills the parts; the same arguments always give the same bytes. No part, or a first
// part too small for the record, gives bytes that no bootloader takes for an image.
std::vector<DfuSeElement> BuildKeyboardImage(const KeyboardVersion& version,
                                             const std::vector<ImagePart>& parts);

// The version of the whole image that starts at the address; empty when there is none.
std::optional<KeyboardVersion> FindKeyboardImage(const NorFlash& flash, u32 address);

}  // namespace simulator
