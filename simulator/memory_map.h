// The DfuSe memory map of a keyboard's flash as text, for instance
// "@Internal Flash  /0x08000000/04*016Kg,01*064Kg". A device tells it as the string of an interface
// descriptor. Written and read apart from the service's own parser, so that the two check each
// other.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulator/nor_flash.h"

namespace simulator {

// What a string descriptor has room for; the device cuts a longer text.
inline constexpr std::size_t LongestStringChars = 126;

// What a map tells of a keyboard.
// The text stays as it was told: the service is to read that, not something that means the same.
struct KeyboardMemory {
  std::string text;
  std::string name;
  std::vector<FlashRegion> flash;
};

// A count of two digits and a size of three at the least, as in the maps of real parts; sizes in
// the largest unit that divides them.
std::string MemoryMapText(const std::string& name, const std::vector<FlashRegion>& regions);

// Empty when the text is no map, or when its sectors overlap, have no bytes, go beyond the address
// space or come to more than 64 MiB.
std::optional<KeyboardMemory> ReadMemoryMap(const std::string& text);

}  // namespace simulator
