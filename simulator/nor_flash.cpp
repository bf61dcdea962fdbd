#include "simulator/nor_flash.h"

#include <algorithm>

namespace simulator {

namespace {

// NOR cells read as ones when they are erased; programming pulls single bits down.
constexpr u8 Erased = 0xFF;

}  // namespace

// One array holds all sectors one behind the other, however far apart their addresses are: a map
// may tell of flash at one end of the address space and of option bytes at the other.
NorFlash::NorFlash(const std::vector<FlashRegion>& regions) {
  std::size_t offset = 0;
  for (const FlashRegion& region : regions) {
    u32 address = region.address;
    for (const SectorRun& run : region.runs) {
      for (u32 i = 0; i < run.count; ++i) {
        sectors_.push_back({address, run.sectorBytes, run.access, offset});
        address += run.sectorBytes;
        offset += run.sectorBytes;
      }
    }
  }
  bytes_.assign(offset, Erased);
}

const FlashSector* NorFlash::FindSector(u32 address) const {
  const auto found = std::find_if(sectors_.begin(), sectors_.end(), [&](const FlashSector& each) {
    return address >= each.address && address - each.address < each.sizeBytes;
  });
  return found == sectors_.end() ? nullptr : &*found;
}

// A sector is the least that a part can erase, so what the package does not write in it is lost as
// well.
void NorFlash::Erase(const FlashSector& sector) {
  const auto first = bytes_.begin() + static_cast<std::ptrdiff_t>(sector.offset);
  std::fill_n(first, sector.sizeBytes, Erased);
}

// As a new part comes.
void NorFlash::EraseAll() {
  std::fill(bytes_.begin(), bytes_.end(), Erased);
}

// A block may reach from one sector into the next, which lies elsewhere in the array, and its end
// may lie beyond the last address. So every range is gone through piece by piece, with addresses of
// 64 bits.
const FlashSector* NorFlash::FindPiece(u64 address, std::size_t most, std::size_t& offset,
                                       std::size_t& count) const {
  const FlashSector* const sector =
      address > 0xFFFFFFFF ? nullptr : FindSector(static_cast<u32>(address));
  if (sector != nullptr) {
    const std::size_t skip = static_cast<u32>(address) - sector->address;
    offset = sector->offset + skip;
    count = std::min(most, sector->sizeBytes - skip);
  }
  return sector;
}

bool NorFlash::Program(u32 address, const std::vector<u8>& data) {
  bool holdsData = true;
  std::size_t done = 0;
  while (done < data.size()) {
    std::size_t offset = 0;
    std::size_t count = 0;
    if (FindPiece(u64{address} + done, data.size() - done, offset, count) == nullptr) {
      return false;
    }
    // A bit that is to become one stays zero. The part does not complain by itself: only who reads
    // back notices, and the bootloader does.
    const u8* const wanted = data.data() + done;
    u8* const cells = bytes_.data() + offset;
    for (std::size_t i = 0; i < count; ++i) {
      cells[i] = static_cast<u8>(cells[i] & wanted[i]);
    }
    holdsData = holdsData && std::equal(cells, cells + count, wanted);
    done += count;
  }
  return holdsData;
}

// What a part holds after a power loss is nothing that could be programmed: bits may have come
// back.
void NorFlash::Overwrite(u32 address, const std::vector<u8>& data) {
  std::size_t done = 0;
  std::size_t offset = 0;
  std::size_t count = 0;
  while (done < data.size() &&
         FindPiece(u64{address} + done, data.size() - done, offset, count) != nullptr) {
    std::copy_n(data.begin() + static_cast<std::ptrdiff_t>(done), count,
                bytes_.begin() + static_cast<std::ptrdiff_t>(offset));
    done += count;
  }
}

// All or nothing: half of what was asked for would look like firmware that is too short.
std::optional<std::vector<u8>> NorFlash::Read(u32 address, std::size_t count) const {
  std::vector<u8> read;
  while (read.size() < count) {
    std::size_t offset = 0;
    std::size_t piece = 0;
    if (FindPiece(u64{address} + read.size(), count - read.size(), offset, piece) == nullptr) {
      return std::nullopt;
    }
    const auto first = bytes_.begin() + static_cast<std::ptrdiff_t>(offset);
    read.insert(read.end(), first, first + static_cast<std::ptrdiff_t>(piece));
  }
  return read;
}

}  // namespace simulator
