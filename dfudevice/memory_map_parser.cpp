#include "dfudevice/memory_map_parser.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "common/status.h"

namespace {

// Numbers stop growing here, far above every limit, so that sums and products of them fit 64 bits.
constexpr u64 LargestNumber = u64{1} << 40;

// The sector table while it is being filled, and where the next sector goes.
struct SectorFill {
  MemorySector* sectors;
  u32 total;
  u32 count;
  u32 address;
  u32 secondAddress;
};

struct SectorRun {
  i64 sectorCount;  // none when it is below 0
  u32 sectorBytes;
  char attributes;
};

bool IsDigit(char character) {
  return character >= '0' && character <= '9';
}

bool IsBlank(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

// The value of the digits at the front of text, 0 when there are none.
u64 DecimalDigits(const char* text) {
  u64 value = 0;
  for (; IsDigit(*text); ++text) {
    value = std::min(value * 10 + static_cast<u64>(*text - '0'), LargestNumber);
  }
  return value;
}

// The value of the digits that stand directly before star, the character '*' of a longer text in
// which a character that is no digit stands somewhere in front.
u64 DecimalDigitsBefore(const char* star) {
  const char* first = star;
  while (IsDigit(first[-1])) {
    --first;
  }
  return DecimalDigits(first);
}

// Reads a number as atoi does: blanks and a sign may stand in front.
i64 DecimalNumber(const char* text) {
  while (IsBlank(*text)) {
    ++text;
  }
  const bool negative = *text == '-';
  if (negative || *text == '+') {
    ++text;
  }
  const i64 magnitude = static_cast<i64>(DecimalDigits(text));
  return negative ? -magnitude : magnitude;
}

// The value of a hexadecimal digit, 16 for any other character.
u32 HexDigit(char character) {
  if (IsDigit(character)) {
    return static_cast<u32>(character - '0');
  }
  if (character >= 'a' && character <= 'f') {
    return static_cast<u32>(character - 'a') + 10;
  }
  if (character >= 'A' && character <= 'F') {
    return static_cast<u32>(character - 'A') + 10;
  }
  return 16;
}

// Reads an address like strtoul with base 16 where its result has 32 bits: blanks, a sign and "0x"
// may stand in front, a value that does not fit becomes the largest one.
u32 HexAddress(const char* text, const char* end) {
  constexpr u64 Largest = std::numeric_limits<u32>::max();
  while (text != end && IsBlank(*text)) {
    ++text;
  }
  const bool negative = text != end && *text == '-';
  if (text != end && (*text == '-' || *text == '+')) {
    ++text;
  }
  if (end - text > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text += 2;
  }
  u64 value = 0;
  for (; text != end && HexDigit(*text) < 16; ++text) {
    value = std::min(value * 16 + HexDigit(*text), Largest + 1);
  }
  if (value > Largest) {
    return static_cast<u32>(Largest);
  }
  return negative ? 0 - static_cast<u32>(value) : static_cast<u32>(value);
}

// An address field holds one address, or two with a "-" between them.
void ReadAddressField(const char* field, const char* end, SectorFill& fill) {
  const char* const dash = std::find(field, end, '-');
  fill.address = HexAddress(field, dash);
  fill.secondAddress = dash == end ? fill.address : HexAddress(dash + 1, end);
}

// Reads the run whose text starts at text and whose '*' is star. Leaves cursor behind the attribute
// letter, or on the terminator when the text ends before: the sectors have no access rights then.
// False for sectors of a size that does not fit.
bool ReadRun(const char* text, char* star, char*& cursor, SectorRun& run) {
  run.sectorCount = DecimalNumber(text);
  i64 sectorBytes = DecimalNumber(star + 1);
  cursor = star + 1;
  while (IsDigit(*cursor)) {
    ++cursor;
  }
  if (*cursor == 'K') {
    sectorBytes *= 1024;
  } else if (*cursor == 'M') {
    sectorBytes *= 1048576;
  }
  if (sectorBytes < 0 || sectorBytes > std::numeric_limits<u32>::max()) {
    return false;
  }
  run.sectorBytes = static_cast<u32>(sectorBytes);
  if (*cursor != 0) {
    ++cursor;
  }
  run.attributes = *cursor;
  if (*cursor != 0) {
    ++cursor;
  }
  return true;
}

// The total counts the digits beside each '*', a run those in front of its text. False when the
// run has more sectors than the total has left.
bool AppendRun(const SectorRun& run, SectorFill& fill) {
  if (run.sectorCount > i64{fill.total - fill.count}) {
    return false;
  }
  for (i64 i = 0; i < run.sectorCount; ++i) {
    fill.sectors[fill.count] = {fill.address,    fill.secondAddress, fill.count,
                                run.sectorBytes, run.attributes,     1};
    fill.address += run.sectorBytes;
    fill.secondAddress += run.sectorBytes;
    ++fill.count;
  }
  return true;
}

// Reads the runs of a region from the ',' at the cursor on and leaves the cursor behind them.
bool ReadRuns(char*& cursor, SectorFill& fill) {
  while (*cursor == ',') {
    char* const text = cursor + 1;
    char* const star = std::strchr(text, '*');
    if (star == nullptr) {
      cursor = text;
      return true;
    }
    SectorRun run = {};
    if (!ReadRun(text, star, cursor, run) || !AppendRun(run, fill)) {
      return false;
    }
  }
  return true;
}

// Fills the sectors from the regions, the first of which is introduced by the '/' at the cursor.
// Sectors that the text promises without describing them stay zero, and so are not selected.
bool ReadRegions(char* cursor, SectorFill& fill) {
  while (fill.count != fill.total && cursor[0] != 0 && cursor[1] != 0) {
    char* const fieldEnd = std::strchr(cursor + 1, '/');
    if (fieldEnd == nullptr) {
      break;
    }
    ReadAddressField(cursor + 1, fieldEnd, fill);
    // From here on the first run looks like the others, with a ',' in front.
    *fieldEnd = ',';
    cursor = fieldEnd;
    if (!ReadRuns(cursor, fill)) {
      return false;
    }
  }
  return true;
}

// The number of sectors in all runs, as far as the digits before each '*' tell.
u64 SectorTotal(const char* regions) {
  u64 total = 0;
  for (const char* star = std::strchr(regions, '*'); star != nullptr;
       star = std::strchr(star + 1, '*')) {
    total += DecimalDigitsBefore(star);
  }
  return total;
}

// Takes the characters between "@" and the first "/".
void CopyName(const char* name, const char* end, MemoryMap& map) {
  const std::size_t length = std::min(static_cast<std::size_t>(end - name), sizeof(map.name) - 1);
  std::memset(map.name, 0, sizeof(map.name));
  std::memcpy(map.name, name, length);
}

}  // namespace

u32 ParseMemoryMap(const char* text, std::size_t textChars, MemoryMap& map) {
  char copy[MemoryMapTextChars + 1] = {};
  std::copy_n(text, std::min(textChars, MemoryMapTextChars), copy);
  char* const regions = std::strchr(copy, '/');
  if (copy[0] != '@' || regions == nullptr) {
    return StatusNothingToWorkOn;
  }
  // Without any "*" the total is 0.
  const u64 total = SectorTotal(regions);
  if (total == 0 || total > MemoryMapMaxSectors) {
    return StatusNothingToWorkOn;
  }

  const u32 sectorCount = static_cast<u32>(total);
  MemorySector* const sectors = new (std::nothrow) MemorySector[sectorCount]();
  if (sectors == nullptr) {
    return 0;
  }

  SectorFill fill = {sectors, sectorCount, 0, 0, 0};
  if (!ReadRegions(regions, fill)) {
    delete[] sectors;
    return StatusNothingToWorkOn;
  }
  CopyName(copy + 1, regions, map);
  map.sectorCount = sectorCount;
  map.sectors = sectors;
  return 1;
}
