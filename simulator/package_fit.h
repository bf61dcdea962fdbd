// What of a package a memory takes.
#pragma once

#include <string>
#include <vector>

#include "simulator/dfuse_file.h"
#include "simulator/keyboard_options.h"
#include "simulator/nor_flash.h"

namespace simulator {

// A stretch of the package that no writable sector takes.
struct DroppedSpan {
  u64 address = 0;
  u64 bytes = 0;
};
std::vector<DroppedSpan> DroppedSpans(const std::vector<DfuSeElement>& elements,
                                      const NorFlash& flash);

// The memory of which alternate setting 0 tells: the service writes nothing elsewhere, whatever
// else the keyboard has.
NorFlash MemoryForUpdate(const KeyboardOptions& keyboard);

// The lowest address at which two of the elements overlap, as part of a sentence; empty when none
// do.
std::string OverlapText(const std::vector<DfuSeElement>& elements);

}  // namespace simulator
