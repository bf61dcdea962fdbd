// A keyboard's own memory, as a person states it: the text of its memory map.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulator/nor_flash.h"

namespace simulator {

struct KeyboardMemory {
  std::string mapText;
  std::vector<FlashRegion> flash;
};

// Reads the text with the service's own parser. Empty when the service would find no map in it, or
// one that no flash can have; reason then says why.
std::optional<KeyboardMemory> ReadMemoryMap(const std::string& text, std::string& reason);

}  // namespace simulator
