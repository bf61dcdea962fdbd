// The memory-map string of an alternate setting.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "dfudevice/memory_map_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  MemoryMap map{};
  if (ParseMemoryMap(reinterpret_cast<const char*>(data), size, map) != 1) {
    return 0;
  }
  // What was accepted can be used: every sector is there, in order.
  for (u32 i = 0; i < map.sectorCount; ++i) {
    if (map.sectors[i].selected > 1 ||
        (map.sectors[i].selected == 1 && map.sectors[i].index != i)) {
      std::abort();
    }
  }
  delete[] map.sectors;
  return 0;
}
