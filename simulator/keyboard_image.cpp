#include "simulator/keyboard_image.h"

#include <algorithm>
#include <iterator>

namespace simulator {

namespace {

// Erased flash holds ones everywhere and cleared flash zeros, so neither looks like a record.
constexpr u8 Magic[8] = {'K', 'B', 'I', 'M', 'A', 'G', 'E', '1'};
constexpr std::size_t VersionAt = sizeof(Magic);
constexpr std::size_t PartCountAt = VersionAt + 4;
constexpr std::size_t PartsAt = PartCountAt + 4;
constexpr std::size_t PartEntryBytes = 12;
constexpr std::size_t CrcBytes = 4;
constexpr u32 MostParts = 256;

void Append(std::vector<u8>& bytes, u32 value) {
  for (int shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<u8>(value >> shift));
  }
}

u32 Take(const std::vector<u8>& bytes, std::size_t at) {
  return u32{bytes[at]} | u32{bytes[at + 1]} << 8 | u32{bytes[at + 2]} << 16 |
         u32{bytes[at + 3]} << 24;
}

u32 CrcFrom(const std::vector<u8>& bytes, std::size_t skip) {
  return DfuCrc(bytes.data() + skip, bytes.size() - skip);
}

// Bytes that look like code: no two versions and no two addresses have the same.
std::vector<u8> FirmwareBytes(const KeyboardVersion& version, const ImagePart& part) {
  const u32 seed = u32{version.major} << 24 | u32{version.minor} << 16 | u32{version.modelId} << 8 |
                   u32{version.hwRev};
  const u32 salt = seed * 0x9E3779B1u;
  std::vector<u8> bytes(part.sizeBytes);
  u32 address = part.address;
  for (u8& byte : bytes) {
    u32 mixed = (address++ ^ salt) * 0x85EBCA6Bu;
    mixed ^= mixed >> 15;
    byte = static_cast<u8>((mixed * 0xC2B2AE35u) >> 24);
  }
  return bytes;
}

}  // namespace

std::size_t ImageRecordBytes(std::size_t partCount) {
  return PartsAt + partCount * PartEntryBytes + CrcBytes;
}

std::vector<DfuSeElement> BuildKeyboardImage(const KeyboardVersion& version,
                                             const std::vector<ImagePart>& parts) {
  std::vector<DfuSeElement> elements;
  for (const ImagePart& part : parts) {
    elements.push_back({part.address, FirmwareBytes(version, part)});
  }
  // Too small for a record: plain bytes, which no bootloader starts. Some tests want just that.
  const std::size_t recordBytes = ImageRecordBytes(parts.size());
  if (elements.empty() || elements[0].data.size() < recordBytes || parts.size() > MostParts) {
    return elements;
  }

  std::vector<u8> record(std::begin(Magic), std::end(Magic));
  record.insert(record.end(), {version.major, version.minor, version.modelId, version.hwRev});
  Append(record, static_cast<u32>(parts.size()));
  for (const DfuSeElement& element : elements) {
    Append(record, element.address);
    Append(record, static_cast<u32>(element.data.size()));
    Append(record, CrcFrom(element.data, &element == &elements[0] ? recordBytes : 0));
  }
  Append(record, CrcFrom(record, 0));
  std::copy(record.begin(), record.end(), elements[0].data.begin());
  return elements;
}

std::optional<KeyboardVersion> FindKeyboardImage(const NorFlash& flash, u32 address) {
  const auto head = flash.Read(address, PartsAt);
  if (!head.has_value() || !std::equal(std::begin(Magic), std::end(Magic), head->begin())) {
    return std::nullopt;
  }
  // A flash may hold anything, half of an old record and half of a new one included: nothing in it
  // is believed before its CRC.
  const u32 partCount = Take(*head, PartCountAt);
  if (partCount == 0 || partCount > MostParts) {
    return std::nullopt;
  }
  const std::size_t recordBytes = ImageRecordBytes(partCount);
  const auto record = flash.Read(address, recordBytes);
  if (!record.has_value() ||
      DfuCrc(record->data(), recordBytes - CrcBytes) != Take(*record, recordBytes - CrcBytes)) {
    return std::nullopt;
  }

  // An update that broke off leaves some parts old, some erased. One that does not fit is enough to
  // stay in DFU mode.
  for (u32 i = 0; i < partCount; ++i) {
    const std::size_t entry = PartsAt + i * PartEntryBytes;
    const auto bytes = flash.Read(Take(*record, entry), Take(*record, entry + 4));
    const std::size_t skip = i == 0 ? recordBytes : 0;
    if (!bytes.has_value() || bytes->size() < skip ||
        CrcFrom(*bytes, skip) != Take(*record, entry + 8)) {
      return std::nullopt;
    }
  }
  return KeyboardVersion{(*record)[VersionAt], (*record)[VersionAt + 1], (*record)[VersionAt + 2],
                         (*record)[VersionAt + 3]};
}

}  // namespace simulator
