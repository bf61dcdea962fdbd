// The DfuSe memory map of a keyboard's flash as text, for instance
// "@Internal Flash  /0x08000000/04*016Kg,01*064Kg". Apart from the service's own parser, so that
// the two check each other.
#pragma once

#include <string>
#include <vector>

#include "simulator/nor_flash.h"

namespace simulator {

std::string MemoryMapText(const std::string& name, const std::vector<FlashRegion>& regions);

// Reads a map. False when the text is none, or when its sectors overlap, have no bytes, go beyond
// the address space or come to more than 64 MiB; both results are as they were then.
bool ReadMemoryMap(const std::string& text, std::string& name, std::vector<FlashRegion>& regions);

}  // namespace simulator
