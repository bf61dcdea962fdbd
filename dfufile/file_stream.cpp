#include "dfufile/file_stream.h"

#include <binary_file.h>

#include <cstdint>

namespace {

// The largest position that a long holds everywhere.
constexpr u64 LargestPosition = 0x7FFFFFFF;

}  // namespace

FileStream::~FileStream() {
  Close();
}

bool FileStream::Open(const char* path) {
  file_ = OpenBinaryFile(path);
  return file_ != nullptr;
}

void FileStream::Close() {
  if (file_ != nullptr) {
    std::fclose(file_);
    file_ = nullptr;
  }
}

void FileStream::Seek(u64 position) {
  if (failed_) {
    return;
  }
  position_ = position;
  // No file is supported that has bytes further behind; reading there fails.
  if (position <= LargestPosition &&
      std::fseek(file_, static_cast<long>(position), SEEK_SET) != 0) {
    failed_ = true;
  }
}

bool FileStream::Read(void* buffer, u32 bytes) {
  if (failed_ || position_ > LargestPosition || std::fread(buffer, 1, bytes, file_) != bytes) {
    failed_ = true;
    return false;
  }
  position_ += bytes;
  return true;
}

bool FileStream::MeasureSize(u32& bytes) {
  if (failed_ || std::fseek(file_, 0, SEEK_END) != 0) {
    return false;
  }
  const std::int64_t end = std::ftell(file_);
  Seek(position_);
  if (end < 0 || end > static_cast<std::int64_t>(LargestPosition)) {
    return false;
  }
  bytes = static_cast<u32>(end);
  return true;
}
