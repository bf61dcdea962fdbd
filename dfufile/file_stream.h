// A firmware file as a stream of bytes whose failure sticks: nothing brings it back from a read
// that did not get all its bytes. It neither moves nor reads any more.
//
// Its sizes come from files that nobody has vouched for. Positions are counted here in 64 bits,
// since the position of the C library is a long, which has 32 bits on Windows. Files that such a
// position cannot reach to the end are not supported: their size cannot be measured. A seek may go
// beyond the end of the file; the next read fails there.
#pragma once

#include <cstdio>

#include "common/types.h"

class FileStream {
 public:
  FileStream() = default;
  // Closes the file.
  ~FileStream();

  FileStream(const FileStream&) = delete;
  FileStream& operator=(const FileStream&) = delete;

  // Opens the file of an ANSI path for binary reading. Called once for an object.
  bool Open(const char* path);
  // Does nothing when the file is not open.
  void Close();

  // Goes to a position, in bytes from the start of the file.
  void Seek(u64 position);
  // Reads exactly this many bytes. False when they cannot be had; the buffer holds anything then.
  bool Read(void* buffer, u32 bytes);

  // Measures the file; position and failure of the stream stay as they are. False, with bytes
  // untouched, when the file has no size that can be told or has failed.
  bool MeasureSize(u32& bytes);

  // Where the next read starts.
  u64 position() const { return position_; }

  // Makes every later read fail, as after a read that came up short.
  void MarkFailed() { failed_ = true; }

 private:
  std::FILE* file_ = nullptr;
  u64 position_ = 0;
  bool failed_ = false;
};
