#include <algorithm>
#include <charconv>
#include <map>

#include "simulator/pack.h"

namespace simulator {

namespace {

enum RecordType : u8 {
  Data = 0,
  EndOfFile = 1,
  SegmentBase = 2,
  SegmentStart = 3,
  LinearBase = 4,
  LinearStart = 5
};

// The bytes of a line such as ":0300300002337A1E"; empty when it is none or its checksum is wrong.
// Each line carries a count, an address of 16 bits, a type, its bytes and a checksum that makes the
// sum zero.
std::vector<u8> BytesOfLine(const std::string& line) {
  std::vector<u8> bytes;
  u8 sum = 0;
  for (std::size_t at = 1; at + 1 < line.size(); at += 2) {
    u8 byte = 0;
    const auto read = std::from_chars(line.data() + at, line.data() + at + 2, byte, 16);
    if (read.ec != std::errc() || read.ptr != line.data() + at + 2) {
      return {};
    }
    bytes.push_back(byte);
    sum = static_cast<u8>(sum + byte);
  }
  const bool sound = line[0] == ':' && line.size() % 2 == 1 && bytes.size() >= 5 &&
                     bytes.size() == std::size_t{bytes[0]} + 5 && sum == 0;
  return sound ? bytes : std::vector<u8>();
}

// Byte by byte, because lines may come in any order.
struct HexReader {
  std::map<u32, u8> memory;
  u32 base = 0;
  bool ended = false;

  // False for a record that makes no sense.
  bool Take(const std::vector<u8>& record) {
    const u32 count = record[0];
    const u32 offset = u32{record[1]} << 8 | record[2];
    const u32 value = count == 2 ? u32{record[4]} << 8 | record[5] : 0;
    switch (record[3]) {
      case Data:
        for (u32 i = 0; i < count; ++i) {
          // Two values for one byte: one of them would be lost without a word.
          if (!memory.emplace(base + offset + i, record[4 + i]).second) {
            return false;
          }
        }
        return true;
      case EndOfFile:
        ended = true;
        return count == 0;
      // Two ways to tell the upper part of an address: the older one in units of 16 bytes, the
      // newer one in units of 64 KiB.
      case SegmentBase:
        base = value << 4;
        return count == 2;
      case LinearBase:
        base = value << 16;
        return count == 2;
      // Where a program begins means something to a debugger and nothing to a bootloader.
      case SegmentStart:
      case LinearStart:
        return true;
      default:
        return false;
    }
  }
};

}  // namespace

std::optional<std::vector<DfuSeElement>> ReadIntelHex(const std::string& text,
                                                      std::string& reason) {
  HexReader reader;
  u32 number = 0;
  for (std::size_t begin = 0; begin < text.size() && !reader.ended;) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    std::string line = text.substr(begin, end - begin);
    begin = end + 1;
    ++number;
    line.erase(line.find_last_not_of("\r ") + 1);
    if (line.empty()) {
      continue;
    }
    const std::vector<u8> record = BytesOfLine(line);
    if (record.empty() || !reader.Take(record)) {
      reason = "line " + std::to_string(number) + " is no sound record, or gives a byte again";
      return std::nullopt;
    }
  }
  if (!reader.ended || reader.memory.empty()) {
    reason = reader.ended ? "it holds no bytes" : "it has no record that ends it";
    return std::nullopt;
  }
  // Linkers leave holes where sections are aligned. Every run of bytes becomes an element, so that
  // the holes are not written.
  std::vector<DfuSeElement> elements;
  for (const auto& [address, byte] : reader.memory) {
    if (elements.empty() || elements.back().address + elements.back().data.size() != address) {
      elements.push_back({address, {}});
    }
    elements.back().data.push_back(byte);
  }
  return elements;
}

}  // namespace simulator
