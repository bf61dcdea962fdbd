#include "simulator/memory_map.h"

#include <algorithm>
#include <cstdio>

#include "simulator/setting_lines.h"

namespace simulator {

namespace {

constexpr u32 Kilobyte = 1024;
constexpr u32 Megabyte = 1024 * 1024;
constexpr u64 MostBytes = u64{64} * Megabyte;
constexpr u64 AddressSpaceBytes = u64{1} << 32;

// Count and size have a fixed width in the maps of real parts, and a blank stands for bytes.
std::string RunText(const SectorRun& run) {
  u32 size = run.sectorBytes;
  char unit = ' ';
  if (size % Megabyte == 0) {
    size /= Megabyte;
    unit = 'M';
  } else if (size % Kilobyte == 0) {
    size /= Kilobyte;
    unit = 'K';
  }
  char text[40];
  std::snprintf(text, sizeof(text), "%02u*%03u%c%c", run.count, size, unit, run.access);
  return text;
}

// Two separators in a row have an empty piece between them, which no reader takes for a number.
std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    pieces.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return pieces;
}

// "04*016Kg": a count, a size, its unit and the access.
bool ReadRun(const std::string& text, SectorRun& run) {
  const std::size_t star = text.find('*');
  if (star == std::string::npos || text.size() < star + 4) {
    return false;
  }
  const std::string size = text.substr(star + 1, text.size() - star - 3);
  const char unit = text[text.size() - 2];
  run.access = text.back();
  if (unit != ' ' && unit != 'B' && unit != 'K' && unit != 'M') {
    return false;
  }
  const u32 factor = unit == 'M' ? Megabyte : unit == 'K' ? Kilobyte : 1;
  if (run.access < 'a' || run.access > 'g' ||
      !ReadNumber(text.substr(0, star), 1, 65'535, run.count) ||
      !ReadNumber(size, 1, MostBytes / factor, run.sectorBytes)) {
    return false;
  }
  run.sectorBytes *= factor;
  return true;
}

u64 BytesOf(const FlashRegion& region) {
  u64 bytes = 0;
  for (const SectorRun& run : region.runs) {
    bytes += u64{run.count} * run.sectorBytes;
  }
  return bytes;
}

// Memory that is told twice at one address could be erased by one sector and written by another.
bool LieApart(const std::vector<FlashRegion>& regions) {
  u64 bytes = 0;
  for (const FlashRegion& region : regions) {
    const u64 end = region.address + BytesOf(region);
    bytes += BytesOf(region);
    if (end > AddressSpaceBytes || bytes > MostBytes) {
      return false;
    }
    for (const FlashRegion& other : regions) {
      if (&other != &region && other.address >= region.address && other.address < end) {
        return false;
      }
    }
  }
  return true;
}

// The name comes first; from then on an address and its runs take turns.
bool ReadText(const std::string& text, KeyboardMemory& memory) {
  const std::vector<std::string> pieces = Split(text, '/');
  if (!text.starts_with('@') || pieces.size() < 3 || pieces.size() % 2 == 0) {
    return false;
  }
  for (std::size_t i = 1; i < pieces.size(); i += 2) {
    FlashRegion& region = memory.flash.emplace_back();
    if (!pieces[i].starts_with("0x") || !ReadNumber(pieces[i], 0, 0xFFFFFFFF, region.address)) {
      return false;
    }
    for (const std::string& run : Split(pieces[i + 1], ',')) {
      if (!ReadRun(run, region.runs.emplace_back())) {
        return false;
      }
    }
  }
  memory.name = pieces[0].substr(1);
  return true;
}

}  // namespace

std::string MemoryMapText(const std::string& name, const std::vector<FlashRegion>& regions) {
  std::string text = "@";
  text += name;
  for (const FlashRegion& region : regions) {
    char address[16];
    std::snprintf(address, sizeof(address), "/0x%08X/", region.address);
    text += address;
    for (std::size_t i = 0; i < region.runs.size(); ++i) {
      if (i > 0) {
        text += ',';
      }
      text += RunText(region.runs[i]);
    }
  }
  return text;
}

std::optional<KeyboardMemory> ReadMemoryMap(const std::string& text) {
  KeyboardMemory memory{text, {}, {}};
  return ReadText(text, memory) && LieApart(memory.flash) ? std::optional(memory) : std::nullopt;
}

}  // namespace simulator
