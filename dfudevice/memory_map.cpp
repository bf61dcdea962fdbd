#include "dfudevice/memory_map.h"

MemoryMapTable memoryMapTable = {};

void EmptyMemoryMapTable(MemoryMapTable& table) {
  for (u32 i = 0; i < table.mapCount; ++i) {
    delete[] table.maps[i].sectors;
  }
  delete[] table.maps;
  table = {};
}
