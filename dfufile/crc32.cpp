#include "dfufile/crc32.h"

#include <array>

namespace {

constexpr std::array<u32, 256> MakeTable() {
  constexpr u32 ReflectedPolynomial = 0xEDB88320;
  std::array<u32, 256> table = {};
  for (u32 byte = 0; byte < table.size(); ++byte) {
    u32 value = byte;
    for (int bit = 0; bit < 8; ++bit) {
      value = (value & 1) != 0 ? (value >> 1) ^ ReflectedPolynomial : value >> 1;
    }
    table[byte] = value;
  }
  return table;
}

constexpr std::array<u32, 256> CrcTable = MakeTable();

}  // namespace

u32 ExtendCrc32(u32 crc, const u8* bytes, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    crc = CrcTable[(crc ^ bytes[i]) & 0xFF] ^ (crc >> 8);
  }
  return crc;
}
