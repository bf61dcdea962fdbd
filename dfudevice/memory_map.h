// The memory maps of the DFU device that was refreshed last.
//
// A map is what a device tells about the memory behind one of its alternate settings: the sectors
// with their addresses, sizes and access rights. The image cuts read maps to decide what is erased
// and written; the image preparation and the session driver use the first map of the table.
//
// The records are plain. Whoever holds a MemoryMapTable owns its arrays and gives them back with
// EmptyMemoryMapTable.
#pragma once

#include "common/types.h"

// Access bits of MemorySector::attributes.
inline constexpr u8 SectorReadable = 1;
inline constexpr u8 SectorErasable = 2;
inline constexpr u8 SectorWritable = 4;

inline constexpr u32 MemoryMapNameChars = 260;

// A path of up to 258 characters and its NUL, which is what an erase is launched with.
inline constexpr u32 MemoryMapPathBytes = 259;

struct MemorySector {
  u32 address;
  // A second running address, from regions that give two; else the same as address.
  u32 secondAddress;
  // Its number within the map, from 0; a new region does not begin anew.
  u32 index;
  // In bytes.
  u32 size;
  // The character that the device wrote for the access rights, 'a' to 'g' from a sound one; its low
  // three bits are the access bits.
  char attributes;
  // 1 for a decoded sector. Cuts and blank images pass over a sector that is not selected.
  u32 selected;
};

struct MemoryMap {
  // bAlternateSetting of the interface descriptor that the map belongs to.
  u8 alternateSetting;
  // The region name, NUL-terminated, spaces included.
  char name[MemoryMapNameChars];
  u32 sectorCount;
  // sectorCount records in the order of the device's string; new[].
  MemorySector* sectors;
};

struct MemoryMapTable {
  // One map for each alternate setting, in the order of their index; new[], null when empty.
  MemoryMap* maps;
  u32 mapCount;
  // wTransferSize of the configuration set that the maps were counted in, in bytes; 0 when the set
  // does not give one.
  u16 transferSize;
  // The interface path of the device that told the maps, in the ANSI code page, NUL-terminated.
  // Empty in an empty table, and for a path that does not fit: cut short it could be that of
  // another device. An update is not begun on such a device.
  char devicePath[MemoryMapPathBytes];
};

// The maps of the current DFU device. Starts empty, is written by RefreshDfuDevices and is guarded
// by the update lock: nobody keeps a pointer into it without holding the lock.
extern MemoryMapTable memoryMapTable;

// Frees the sectors of every map and the maps, and leaves the table without maps, transfer size and
// path. An empty table is allowed.
void EmptyMemoryMapTable(MemoryMapTable& table);
