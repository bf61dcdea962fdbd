#include "dfufile/dfu_file.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "common/debug_output.h"
#include "common/little_endian.h"
#include "common/package_values.h"
#include "common/status.h"
#include "dfufile/crc32.h"

DfuFileRegistry dfuFileRegistry;

namespace {

// Sizes of the file's records, in bytes.
constexpr u32 FilePrefixBytes = 11;
constexpr u32 TargetPrefixBytes = 274;
constexpr u32 ElementHeaderBytes = 8;
constexpr u32 FileSuffixBytes = 16;
constexpr u32 CrcBytes = 4;

// The file prefix: "DfuSe", the format version, the size of the image, the number of targets.
constexpr char FileSignature[] = "DfuSe";
constexpr u32 FileSignatureBytes = 5;
constexpr u32 FormatVersionOffset = 5;
constexpr u8 FormatVersion = 1;
constexpr u32 TargetCountOffset = 10;

// The target prefix.
constexpr char TargetSignature[] = "Target";
constexpr u32 TargetSignatureBytes = 6;
constexpr u32 AlternateSettingOffset = 6;
constexpr u32 NamedOffset = 7;
constexpr u32 NameOffset = 11;
constexpr u32 TargetSizeOffset = 266;
constexpr u32 ElementCountOffset = 270;
static_assert(NameOffset + ImageNameBytes == TargetSizeOffset);

// The suffix.
constexpr u32 DeviceVersionOffset = 0;
constexpr u32 ProductIdOffset = 2;
constexpr u32 VendorIdOffset = 4;
constexpr u32 DfuVersionOffset = 6;
constexpr u32 SuffixSignatureOffset = 8;
constexpr u32 SuffixLengthOffset = 11;
constexpr u32 CrcOffset = 12;

constexpr u32 CrcChunkBytes = 4096;

bool CheckPrefix(DfuFile& file) {
  u8 prefix[FilePrefixBytes];
  if (!file.Stream.Read(prefix, FilePrefixBytes)) {
    WriteDebugText(TEXT("Read Prefix fail\n"));
    return false;
  }
  // The version goes first: of a file that is wrong in both it is the version that is reported.
  if (prefix[FormatVersionOffset] != FormatVersion) {
    WriteDebugText(TEXT("Prefix version not match\n"));
    return false;
  }
  if (std::memcmp(prefix, FileSignature, FileSignatureBytes) != 0) {
    WriteDebugText(TEXT("Prefix Signature not match\n"));
    return false;
  }
  file.TargetCount = prefix[TargetCountOffset];
  return true;
}

// A file too large to be measured has no suffix that could be reached either.
bool ReadSuffix(DfuFile& file, u8* suffix) {
  if (!file.Stream.MeasureSize(file.FileBytes) || file.FileBytes < FileSuffixBytes) {
    return false;
  }
  file.Stream.Seek(file.FileBytes - FileSuffixBytes);
  return file.Stream.Read(suffix, FileSuffixBytes);
}

bool SuffixMatches(const u8* suffix) {
  const u8* const signature = suffix + SuffixSignatureOffset;
  return signature[0] == 0x55 && signature[1] == 0x46 && signature[2] == 0x44 &&
         suffix[SuffixLengthOffset] == FileSuffixBytes && suffix[DfuVersionOffset + 1] == 0x01 &&
         suffix[DfuVersionOffset] == 0x1A;
}

// Computes the checksum of everything but the file's last four bytes, which hold it. The body is
// read in small portions, so that no file is too large for the memory at hand.
u32 ComputeCrc(DfuFile& file) {
  u8 chunk[CrcChunkBytes];
  u32 crc = Crc32Start;
  file.Stream.Seek(0);
  for (u32 left = file.FileBytes - CrcBytes; left != 0;) {
    const u32 portion = std::min(left, CrcChunkBytes);
    if (!file.Stream.Read(chunk, portion)) {
      WriteDebugText(TEXT("Fail to read CRC"));
      return 0xFFFFFFFF;
    }
    crc = ExtendCrc32(crc, chunk, portion);
    left -= portion;
  }
  return crc;
}

bool CheckSuffix(DfuFile& file) {
  u8 suffix[FileSuffixBytes];
  if (!ReadSuffix(file, suffix)) {
    WriteDebugText(TEXT("Read suffix fail\n"));
    return false;
  }
  if (!SuffixMatches(suffix)) {
    WriteDebugText(TEXT("Suffix not match\n"));
    return false;
  }
  if (LittleEndian32(suffix + CrcOffset) != ComputeCrc(file)) {
    WriteDebugText(TEXT("Check CRC fail\n"));
    return false;
  }
  file.VendorId = LittleEndian16(suffix + VendorIdOffset);
  file.ProductId = LittleEndian16(suffix + ProductIdOffset);
  file.DeviceVersion = LittleEndian16(suffix + DeviceVersionOffset);
  return true;
}

u32 OpenAndCheck(DfuFile& file) {
  if (!file.Stream.Open(packagePath)) {
    WriteDebugText(TEXT("Open dfu file fail\n"));
    return StatusFileNotOpened;
  }
  WriteDebugText(TEXT("File is opened\n"));
  if (!CheckPrefix(file) || !CheckSuffix(file)) {
    file.Stream.Close();
    return StatusBadFile;
  }
  file.Stream.Seek(FilePrefixBytes);
  return StatusSuccess;
}

// Reads the prefix of the target with this index, and so leaves the stream on its first element.
// Each target before it is passed over by the size that its prefix states.
bool FindTarget(FileStream& stream, u32 targetIndex, u8* prefix) {
  stream.Seek(FilePrefixBytes);
  for (u32 i = 0;; ++i) {
    if (!stream.Read(prefix, TargetPrefixBytes) ||
        std::memcmp(prefix, TargetSignature, TargetSignatureBytes) != 0) {
      return false;
    }
    if (i == targetIndex) {
      return true;
    }
    stream.Seek(stream.position() + LittleEndian32(prefix + TargetSizeOffset));
  }
}

bool ReadElement(DfuFile& file, DfuImage* image) {
  FileStream& stream = file.Stream;
  u8 header[ElementHeaderBytes];
  if (!stream.Read(header, ElementHeaderBytes)) {
    return false;
  }
  const u32 address = LittleEndian32(header);
  const u32 size = LittleEndian32(header + 4);
  // No memory is asked for that the file cannot fill. The read that is spared would have come up
  // short and left the stream unusable, so that is how it is left here. In a file that has grown
  // since it was measured the position may lie behind its former end.
  if (stream.position() > file.FileBytes || size > file.FileBytes - stream.position()) {
    stream.MarkFailed();
    return false;
  }
  if (size == 0) {
    return InsertElement(image, image->Elements.size(), {address, 0, nullptr}) == 1;
  }

  u8* const data = new (std::nothrow) u8[size];
  if (data == nullptr) {
    return false;
  }
  const bool inserted = stream.Read(data, size) &&
                        InsertElement(image, image->Elements.size(), {address, size, data}) == 1;
  delete[] data;
  return inserted;
}

bool ReadElements(DfuFile& file, u32 elementCount, DfuImage* image) {
  for (u32 j = 0; j < elementCount; ++j) {
    if (!ReadElement(file, image)) {
      return false;
    }
  }
  return image->Valid != 0;
}

u32 ReadTarget(DfuFile& file, u32 targetIndex, DfuImage** image) {
  u8 prefix[TargetPrefixBytes];
  if (!FindTarget(file.Stream, targetIndex, prefix)) {
    return StatusBadFile;
  }
  char name[ImageNameBytes];
  std::memcpy(name, prefix + NameOffset, ImageNameBytes);

  DfuImage* const target = new (std::nothrow)
      DfuImage(prefix[AlternateSettingOffset], LittleEndian32(prefix + NamedOffset), name);
  if (target == nullptr) {
    return StatusBadElements;
  }
  if (!ReadElements(file, LittleEndian32(prefix + ElementCountOffset), target)) {
    delete target;
    return StatusBadElements;
  }
  *image = target;
  return StatusSuccess;
}

}  // namespace

u32 OpenDfuFile(DfuFile** file, u8* targetCount) {
  DfuFile* const opening = new (std::nothrow) DfuFile;
  if (opening == nullptr) {
    WriteDebugText(TEXT("Open dfu file fail\n"));
    return StatusFileNotOpened;
  }
  opening->Status = OpenAndCheck(*opening);
  const u32 status = opening->Status;
  if (status != StatusSuccess) {
    delete opening;
    return status;
  }

  dfuFileRegistry.Append(*opening);
  *file = opening;
  if (targetCount != nullptr) {
    *targetCount = opening->TargetCount;
  }
  return StatusSuccess;
}

u32 ReadTargetImage(DfuFile* file, u32 targetIndex, DfuImage** image) {
  if (!IsRegisteredFile(file)) {
    return StatusBadFile;
  }
  file->Status = ReadTarget(*file, targetIndex, image);
  return file->Status;
}

void CloseDfuFile(DfuFile* file) {
  if (dfuFileRegistry.Remove(file)) {
    delete file;
  }
}

bool IsRegisteredFile(const DfuFile* file) {
  return dfuFileRegistry.Contains(file);
}
