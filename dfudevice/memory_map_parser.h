// Reads the text in which a DFU device describes its memory.
//
//   @Name/0x08000000/04*016Kg,02*064Kg
//
// is a name, then one or more regions of an address (or two, "A-B"), "/" and runs of equal sectors:
// count "*" size, unit letter (K, M or anything else for bytes), attribute letter. Regions follow
// one another separated by "/".
//
// The text comes from the device and is trusted in nothing. The parser has no state;
// DecodeMemoryMaps calls it under the update lock.
#pragma once

#include <cstddef>

#include "common/types.h"
#include "dfudevice/memory_map.h"

// The most characters of a text that are looked at; the rest is ignored.
inline constexpr std::size_t MemoryMapTextChars = 511;

// The most sectors that a map, or all maps of a device, may have. A text of a few characters can
// ask for millions of them; this many fill 1.5 MiB, and cover 256 MiB of flash in sectors of 4 KiB.
inline constexpr u32 MemoryMapMaxSectors = 65536;

// Parses text, textChars characters of the ANSI code page that need no NUL; a NUL among them ends
// the text. On success sets map.name, map.sectorCount and map.sectors, which the caller owns then
// (delete[]), and leaves map.alternateSetting alone. map is untouched on any other result.
//
// Returns 1 for a memory map, 0 when there is no memory for the sectors, StatusNothingToWorkOn when
// the text is none or is not to be trusted: no "@" in front, no "*" behind the first "/", no sector
// or more than MemoryMapMaxSectors in all, a sector size below 0 or beyond 32 bits, or runs with
// more sectors than the digits beside each "*" add up to. Where they have fewer, the last sectors
// of the map are zero-filled. A run's own number is read from the start of its text, as atoi does,
// so "-4*" and "4 *" count 4 and 0 sectors in all but describe -4 and 4.
u32 ParseMemoryMap(const char* text, std::size_t textChars, MemoryMap& map);
