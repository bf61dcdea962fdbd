// DfuSe files as the simulator makes and reads them, apart from the service's own reader, so that
// the two check each other. Format: the DfuSe file format 1.1a with the DFU 1.1 suffix.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/types.h"

namespace simulator {

// Bytes for one place in the memory; elements say where, the file has no addresses else.
struct DfuSeElement {
  u32 address = 0;
  std::vector<u8> data;
};

struct DfuSeTarget {
  u8 alternateSetting = 0;
  u32 named = 1;
  std::string name = "Firmware";
  std::vector<DfuSeElement> elements;

  // What the target prefix says instead of the truth, for broken files.
  std::optional<u32> statedSize;
  std::optional<u32> statedElementCount;
};

struct DfuSeFile {
  u16 vendorId = 0x1209;
  u16 productId = 0x0001;
  u16 deviceVersion = 0;
  std::vector<DfuSeTarget> targets;

  // From reading: what is wrong with the file and yet does not keep the service from its target.
  std::vector<std::string> notes = {};
};

inline constexpr std::size_t DfuSePrefixBytes = 11;
inline constexpr std::size_t DfuSeTargetPrefixBytes = 274;
inline constexpr std::size_t DfuSeSuffixBytes = 16;

std::vector<u8> BuildDfuSe(const DfuSeFile& file);

// Writes the CRC that belongs to the bytes before it into the last four. For files that were
// changed after they were built; a file shorter than four bytes is left alone.
void SealDfuSe(std::vector<u8>& bytes);

// The CRC-32 of the DFU suffix: that of IEEE 802.3 without the inversion at the end.
u32 DfuCrc(const u8* bytes, std::size_t count);

// Reads a file, by the service's rules: the targets up to the first that cannot be read, each found
// by the size that the one before it states. When no target for alternate setting 0 is among them,
// the result is empty and reason holds one sentence that a person understands, with the offset.
std::optional<DfuSeFile> ReadDfuSe(const std::vector<u8>& bytes, std::string& reason);

// The first target with alternate setting 0, the one that the service writes; null when there is
// none.
const DfuSeTarget* TargetForUpdate(const DfuSeFile& file);

}  // namespace simulator
