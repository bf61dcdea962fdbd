#include "simulator/memory_map_option.h"

#include "dfudevice/memory_map_parser.h"
#include "simulator/dfu_descriptors.h"

namespace simulator {

namespace {

// False for a sector that lies in no address space or knows no access.
bool AppendSector(const MemorySector& sector, u64& end, std::vector<FlashRegion>& flash) {
  const bool sound = sector.size > 0 && sector.attributes >= 'a' && sector.attributes <= 'g' &&
                     sector.address + u64{sector.size} <= u64{1} << 32;
  if (!sound) {
    return false;
  }
  if (flash.empty() || sector.address != end) {
    flash.push_back({sector.address, {}});
  }
  std::vector<SectorRun>& runs = flash.back().runs;
  if (runs.empty() || runs.back().sectorBytes != sector.size ||
      runs.back().access != sector.attributes) {
    runs.push_back({0, sector.size, sector.attributes});
  }
  ++runs.back().count;
  end = sector.address + u64{sector.size};
  return true;
}

}  // namespace

std::optional<KeyboardMemory> ReadMemoryMap(const std::string& text, std::string& reason) {
  if (text.size() > LongestStringChars) {
    reason =
        "is longer than the " + std::to_string(LongestStringChars) + " characters of a USB string";
    return std::nullopt;
  }
  reason =
      "takes a memory map such as \"@Internal Flash  /0x08000000/04*016Kg\", not '" + text + "'";
  MemoryMap map{};
  if (ParseMemoryMap(text.data(), text.size(), map) != 1) {
    return std::nullopt;
  }
  KeyboardMemory memory{text, {}};
  u64 end = 0;
  bool sound = map.sectorCount > 0;
  u64 bytes = 0;
  for (u32 i = 0; sound && i < map.sectorCount; ++i) {
    sound = AppendSector(map.sectors[i], end, memory.flash);
    bytes += map.sectors[i].size;
  }
  delete[] map.sectors;
  if (!sound || bytes > u64{256} << 20) {
    return std::nullopt;
  }
  return memory;
}

}  // namespace simulator
