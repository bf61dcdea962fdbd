#include "simulator/dfuse_file.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace simulator {

namespace {

constexpr std::size_t TargetNameBytes = 255;

void Append(std::vector<u8>& bytes, const char* text) {
  bytes.insert(bytes.end(), text, text + std::strlen(text));
}

void Append16(std::vector<u8>& bytes, u32 value) {
  bytes.push_back(static_cast<u8>(value));
  bytes.push_back(static_cast<u8>(value >> 8));
}

void Append32(std::vector<u8>& bytes, u32 value) {
  Append16(bytes, value);
  Append16(bytes, value >> 16);
}

u32 Read16(const u8* bytes) {
  return bytes[0] | static_cast<u32>(bytes[1]) << 8;
}
u32 Read32(const u8* bytes) {
  return Read16(bytes) | Read16(bytes + 2) << 16;
}

u32 ElementBytes(const DfuSeTarget& target) {
  std::size_t size = 0;
  for (const DfuSeElement& element : target.elements) {
    size += 8 + element.data.size();
  }
  return static_cast<u32>(size);
}

// Numbers have their lowest byte first throughout the file. The name fills its place to the last
// byte.
void AppendTarget(std::vector<u8>& bytes, const DfuSeTarget& target) {
  Append(bytes, "Target");
  bytes.push_back(target.alternateSetting);
  Append32(bytes, target.named);
  std::string name = target.name.substr(0, TargetNameBytes);
  name.resize(TargetNameBytes, '\0');
  bytes.insert(bytes.end(), name.begin(), name.end());
  Append32(bytes, target.statedSize.value_or(ElementBytes(target)));
  Append32(bytes, target.statedElementCount.value_or(static_cast<u32>(target.elements.size())));
  for (const DfuSeElement& element : target.elements) {
    Append32(bytes, element.address);
    Append32(bytes, static_cast<u32>(element.data.size()));
    bytes.insert(bytes.end(), element.data.begin(), element.data.end());
  }
}

std::string AtOffset(std::size_t offset) {
  return " (at byte " + std::to_string(offset) + ")";
}

// Walks a file; every length is compared with the bytes left before it is used.
class Reader {
 public:
  explicit Reader(const std::vector<u8>& bytes) : bytes_(bytes) {}

  const u8* Take(u64 count) {
    if (at > bytes_.size() || count > bytes_.size() - at) {
      return nullptr;
    }
    const u8* const taken = bytes_.data() + at;
    at += count;
    return taken;
  }

  u64 at = DfuSePrefixBytes;

 private:
  const std::vector<u8>& bytes_;
};

bool ReadTarget(Reader& reader, DfuSeFile& file, std::string& reason) {
  const u64 begin = reader.at;
  const u8* const prefix = reader.Take(DfuSeTargetPrefixBytes);
  if (prefix == nullptr || std::memcmp(prefix, "Target", 6) != 0) {
    reason = "a target does not begin with its prefix" + AtOffset(begin);
    return false;
  }
  DfuSeTarget target;
  target.alternateSetting = prefix[6];
  target.named = Read32(prefix + 7);
  const char* const name = reinterpret_cast<const char*>(prefix + 11);
  target.name.assign(name, std::find(name, name + TargetNameBytes, '\0'));

  const u64 elementsBegin = reader.at;
  const u32 elementCount = Read32(prefix + 270);
  for (u32 i = 0; i < elementCount; ++i) {
    const u64 elementBegin = reader.at;
    const u8* const header = reader.Take(8);
    const u8* const data = header == nullptr ? nullptr : reader.Take(Read32(header + 4));
    if (data == nullptr) {
      reason = "an element runs past the end of the file" + AtOffset(elementBegin);
      return false;
    }
    target.elements.push_back({Read32(header), {data, data + Read32(header + 4)}});
  }
  if (reader.at - elementsBegin != Read32(prefix + 266)) {
    file.notes.push_back("a target's size does not match its elements" + AtOffset(begin + 266));
  }
  // The service goes to the next target by the size that is stated, so this reader must, too; a
  // wrong one loses the targets behind it.
  reader.at = elementsBegin + Read32(prefix + 266);
  file.targets.push_back(std::move(target));
  return true;
}

// In the order in which the service looks, so that the reason is the one for which it refuses the
// file.
bool CheckEnds(const std::vector<u8>& bytes, std::string& reason) {
  if (bytes.size() < DfuSePrefixBytes + DfuSeSuffixBytes) {
    reason = "the file is too short to be a DfuSe file" + AtOffset(bytes.size());
    return false;
  }
  const u8* const suffix = bytes.data() + bytes.size() - DfuSeSuffixBytes;
  if (std::memcmp(bytes.data(), "DfuSe", 5) != 0 || bytes[5] != 1) {
    reason = "the file does not begin with the prefix of a DfuSe file of version 1" + AtOffset(0);
  } else if (std::memcmp(suffix + 8, "UFD", 3) != 0 || suffix[11] != DfuSeSuffixBytes ||
             Read16(suffix + 6) != 0x011A) {
    reason = "the file does not end with a DFU suffix of version 1.1a" +
             AtOffset(bytes.size() - DfuSeSuffixBytes);
  } else if (Read32(suffix + 12) != DfuCrc(bytes.data(), bytes.size() - 4)) {
    reason = "the file's CRC does not match its contents" + AtOffset(bytes.size() - 4);
  } else {
    return true;
  }
  return false;
}

}  // namespace

// Eight bytes a step: a run of the soak makes two firmwares and looks at them at every start, which
// cost it more than any other computation.
u32 DfuCrc(const u8* bytes, std::size_t count) {
  // Made by the compiler: what a byte with that many more behind it adds.
  static constexpr auto Steps = [] {
    std::array<std::array<u32, 256>, 8> steps{};
    for (u32 i = 0; i < 256; ++i) {
      u32 step = i;
      for (std::size_t bit = 1; bit <= 64; ++bit) {
        step = (step >> 1) ^ ((step & 1) != 0 ? 0xEDB88320u : 0u);
        if (bit % 8 == 0) {
          steps[bit / 8 - 1][i] = step;
        }
      }
    }
    return steps;
  }();
  u32 crc = 0xFFFFFFFF;
  for (; count >= 8; bytes += 8, count -= 8) {
    const u32 low = crc ^ Read32(bytes);
    const u32 high = Read32(bytes + 4);
    crc = Steps[7][low & 0xFF] ^ Steps[6][low >> 8 & 0xFF] ^ Steps[5][low >> 16 & 0xFF] ^
          Steps[4][low >> 24] ^ Steps[3][high & 0xFF] ^ Steps[2][high >> 8 & 0xFF] ^
          Steps[1][high >> 16 & 0xFF] ^ Steps[0][high >> 24];
  }
  for (; count > 0; ++bytes, --count) {
    crc = (crc >> 8) ^ Steps[0][(crc ^ *bytes) & 0xFF];
  }
  return crc;
}

void SealDfuSe(std::vector<u8>& bytes) {
  if (bytes.size() < 4) {
    return;
  }
  bytes.resize(bytes.size() - 4);
  Append32(bytes, DfuCrc(bytes.data(), bytes.size()));
}

std::vector<u8> BuildDfuSe(const DfuSeFile& file) {
  std::vector<u8> bytes;
  Append(bytes, "DfuSe");
  bytes.push_back(1);
  Append32(bytes, 0);
  bytes.push_back(static_cast<u8>(file.targets.size()));
  for (const DfuSeTarget& target : file.targets) {
    AppendTarget(bytes, target);
  }

  // The image size counts all but the suffix.
  const u32 imageSize = static_cast<u32>(bytes.size());
  for (std::size_t i = 0; i < 4; ++i) {
    bytes[6 + i] = static_cast<u8>(imageSize >> (8 * i));
  }

  // The suffix reads from the end of the file backwards, hence the order of its fields.
  Append16(bytes, file.deviceVersion);
  Append16(bytes, file.productId);
  Append16(bytes, file.vendorId);
  Append16(bytes, 0x011A);
  Append(bytes, "UFD");
  bytes.push_back(DfuSeSuffixBytes);
  Append32(bytes, 0);
  SealDfuSe(bytes);
  return bytes;
}

std::optional<DfuSeFile> ReadDfuSe(const std::vector<u8>& bytes, std::string& reason) {
  if (!CheckEnds(bytes, reason)) {
    return std::nullopt;
  }
  const u8* const suffix = bytes.data() + bytes.size() - DfuSeSuffixBytes;
  DfuSeFile file;
  file.deviceVersion = static_cast<u16>(Read16(suffix));
  file.productId = static_cast<u16>(Read16(suffix + 2));
  file.vendorId = static_cast<u16>(Read16(suffix + 4));
  Reader reader(bytes);
  // What lies behind a broken target cannot be found. The service takes what stands in front of it.
  for (int i = 0; i < bytes[10]; ++i) {
    if (!ReadTarget(reader, file, reason)) {
      file.notes.push_back(reason);
      break;
    }
  }
  if (TargetForUpdate(file) == nullptr) {
    reason = file.targets.size() == bytes[10] ? "it holds no target for alternate setting 0"
                                              : file.notes.back();
    return std::nullopt;
  }
  if (Read32(bytes.data() + 6) != bytes.size() - DfuSeSuffixBytes) {
    file.notes.push_back("the prefix states another size than the file has" + AtOffset(6));
  }
  return file;
}

const DfuSeTarget* TargetForUpdate(const DfuSeFile& file) {
  const auto found =
      std::find_if(file.targets.begin(), file.targets.end(),
                   [](const DfuSeTarget& target) { return target.alternateSetting == 0; });
  return found == file.targets.end() ? nullptr : &*found;
}

}  // namespace simulator
