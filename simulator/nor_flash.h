// The keyboard's flash memory, with the rules of NOR flash: erasing a sector sets all of its bits,
// programming only clears bits.
//
// Plain data that its owner guards. It outlives the simulated machine where a run wants it to: it
// can be copied.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/types.h"

namespace simulator {

inline constexpr u64 AddressSpaceEnd = u64{1} << 32;

// Equal sectors one after the other. access is the letter of the DfuSe memory map: its lowest three
// bits stand for readable, erasable and writable.
struct SectorRun {
  u32 count = 0;
  u32 sectorBytes = 0;
  char access = 'g';
};

// A stretch of memory without holes; a map tells one address for it.
struct FlashRegion {
  u32 address = 0;
  std::vector<SectorRun> runs;
};

// What is erased at once.
struct FlashSector {
  u32 address = 0;
  u32 sizeBytes = 0;
  char access = 'g';
  std::size_t offset = 0;  // of its first byte in the memory's bytes

  bool isErasable() const { return (access & 2) != 0; }
  bool isWritable() const { return (access & 4) != 0; }
};

// Copying one copies all of its bytes: that is how a run keeps what was there before.
class NorFlash {
 public:
  // All of it erased.
  explicit NorFlash(const std::vector<FlashRegion>& regions);

  // The sector that holds the address; null when none does.
  const FlashSector* FindSector(u32 address) const;
  const std::vector<FlashSector>& sectors() const { return sectors_; }

  void Erase(const FlashSector& sector);
  void EraseAll();

  // False when the memory does not hold the data afterwards: a bit would have had to be set, or
  // part of the range does not exist. What can be cleared is cleared all the same.
  bool Program(u32 address, const std::vector<u8>& data);

  // Makes the bytes what data says, whatever they were, as work that is broken off may. Ends where
  // the memory does.
  void Overwrite(u32 address, const std::vector<u8>& data);

  // Empty when part of the range does not exist.
  std::optional<std::vector<u8>> Read(u32 address, std::size_t count) const;

  // All sectors one after the other.
  const std::vector<u8>& bytes() const { return bytes_; }

 private:
  // The bytes from the address on that lie in one sector, most of them at the most; null when there
  // is no sector.
  const FlashSector* FindPiece(u64 address, std::size_t most, std::size_t& offset,
                               std::size_t& count) const;

  std::vector<FlashSector> sectors_;
  std::vector<u8> bytes_;
};

}  // namespace simulator
