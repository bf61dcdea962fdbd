// Files, searches and the opening of devices.
#include <binary_file.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>
#include <windows.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <string_view>
#include <vector>

#include "platform/machine/text.h"
#include "platform/winapi/platform_call.h"

using platform::Call;
using platform::HandleKind;
using platform::KernelObject;
using platform::LastErrorCall;
using platform::PlatformCall;
using platform::SureCall;
using platform::TheMachine;

namespace {

// The entries as they were when the search began.
class SearchObject : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::Search;

  std::vector<WIN32_FIND_DATAA> entries;
  std::atomic<std::size_t> next = 1;
};

// Windows gives '?', "*.*" and the folder's own entries meanings that no caller needs.
bool IsModelledPattern(std::string_view path) {
  const std::string_view name = path.substr(path.find_last_of("\\/") + 1);
  return path.find_first_of("?<>\"") == std::string_view::npos &&
         path.substr(0, path.size() - name.size()).find('*') == std::string_view::npos &&
         name.find_first_not_of("*.") != std::string_view::npos;
}

// A stream of the service counts as an open file until it is closed.
class FileObject : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::File;
};

// What stands behind the C library's stream. The handle makes one that is left open show at the
// end.
struct Stream {
  int descriptor;
  void* handle;
};

// What the drive is asked for when the stream's own buffer is empty.
ssize_t ReadStream(void* cookie, char* buffer, std::size_t bytes) {
  if (PlatformCall(Call::ReadBinaryFile).fails()) {
    errno = EIO;
    return -1;
  }
  return read(static_cast<Stream*>(cookie)->descriptor, buffer, bytes);
}

// Seeking asks nothing of the drive, so no order can make it fail.
int SeekStream(void* cookie, off64_t* position, int whence) {
  const off64_t reached = lseek64(static_cast<Stream*>(cookie)->descriptor, *position, whence);
  if (reached < 0) {
    return -1;
  }
  *position = reached;
  return 0;
}

int CloseStream(void* cookie) {
  const Stream* const stream = static_cast<Stream*>(cookie);
  TheMachine().handles.Close(stream->handle, HandleKind::File, "fclose");
  const int result = close(stream->descriptor);
  delete stream;
  return result;
}

}  // namespace

// Opens devices only: what the service reads from the drive it reads as a stream.
HANDLE WINAPI CreateFileW(LPCWSTR lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                          LPSECURITY_ATTRIBUTES lpSecurityAttributes, DWORD dwCreationDisposition,
                          DWORD dwFlagsAndAttributes, HANDLE hTemplateFile) {
  const LastErrorCall<HANDLE> call(Call::CreateFileW, INVALID_HANDLE_VALUE);
  call.Note(lpFileName, dwDesiredAccess, dwShareMode, lpSecurityAttributes, dwCreationDisposition,
            dwFlagsAndAttributes, hTemplateFile);
  if (call.fails()) {
    return call.Fail();
  }
  const std::u16string path = lpFileName;
  const bool onDrive = path.size() >= 2 && path[1] == u':';
  if (onDrive || (dwDesiredAccess & ~(GENERIC_READ | GENERIC_WRITE)) != 0 ||
      (dwShareMode & ~DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE}) != 0 ||
      lpSecurityAttributes != nullptr || dwCreationDisposition != OPEN_EXISTING ||
      (dwFlagsAndAttributes & ~DWORD{FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL}) != 0 ||
      hTemplateFile != nullptr) {
    return call.Refuse("this way to open a file is");
  }
  DWORD error = ERROR_SUCCESS;
  auto device = TheMachine().devices.OpenPath(
      path, {dwDesiredAccess, dwShareMode, dwFlagsAndAttributes}, error);
  if (device == nullptr) {
    return call.Fail(error);
  }
  return TheMachine().handles.Open(std::move(device));
}

// Windows fails for a handle that is none, and under a debugger it stops there. Here it is a fault.
BOOL WINAPI CloseHandle(HANDLE hObject) {
  const SureCall call(Call::CloseHandle);
  call.Note(hObject);
  const bool closed = TheMachine().handles.CloseAny(hObject, call.name());
  return closed ? TRUE : call.Fail(ERROR_INVALID_HANDLE);
}

// The first entry comes with the handle. A path that ends in a backslash is passed on, and fails as
// on Windows: there is no name to look for.
HANDLE WINAPI FindFirstFileA(LPCSTR lpFileName, LPWIN32_FIND_DATAA lpFindFileData) {
  const LastErrorCall<HANDLE> call(Call::FindFirstFileA, INVALID_HANDLE_VALUE);
  call.Note(lpFileName, lpFindFileData);
  if (call.fails()) {
    return call.Fail();
  }
  const std::string_view path = lpFileName;
  if (!path.empty() && path.back() != '\\' && !IsModelledPattern(path)) {
    return call.Refuse("this pattern is");
  }
  auto search = std::make_shared<SearchObject>();
  const DWORD error = TheMachine().drive.List(platform::Utf8FromAnsi(path), search->entries);
  if (error != ERROR_SUCCESS) {
    return call.Fail(error);
  }
  *lpFindFileData = search->entries[0];
  return TheMachine().handles.Open(search);
}

// The record stays as it was when there are no more.
BOOL WINAPI FindNextFileA(HANDLE hFindFile, LPWIN32_FIND_DATAA lpFindFileData) {
  const LastErrorCall<BOOL> call(Call::FindNextFileA);
  call.Note(hFindFile, lpFindFileData);
  if (call.fails()) {
    return call.Fail();
  }
  const auto search = call.Get<SearchObject>(hFindFile);
  if (search == nullptr) {
    return call.Fail(ERROR_INVALID_HANDLE);
  }
  const std::size_t at = search->next++;
  if (at >= search->entries.size()) {
    return call.Fail(ERROR_NO_MORE_FILES);
  }
  *lpFindFileData = search->entries[at];
  return TRUE;
}

BOOL WINAPI FindClose(HANDLE hFindFile) {
  const SureCall call(Call::FindClose);
  call.Note(hFindFile);
  return call.Close<SearchObject>(hFindFile) ? TRUE : call.Fail(ERROR_INVALID_HANDLE);
}

// Cannot fail or block, so it has no place among the calls of the gate.
LONG WINAPI CompareFileTime(const FILETIME* lpFileTime1, const FILETIME* lpFileTime2) {
  const auto whole = [](const FILETIME& time) {
    return ULONGLONG{time.dwHighDateTime} << 32 | time.dwLowDateTime;
  };
  const ULONGLONG first = whole(*lpFileTime1);
  const ULONGLONG second = whole(*lpFileTime2);
  return first < second ? -1 : first > second ? 1 : 0;
}

// The stream reads through the gate each time that its buffer is empty, so that a drive can fail in
// the midst of a file.
std::FILE* OpenBinaryFile(const char* path) {
  if (PlatformCall(Call::OpenBinaryFile).fails()) {
    errno = EACCES;
    return nullptr;
  }
  const std::string utf8 = platform::Utf8FromAnsi(path);
  if (const DWORD error = TheMachine().drive.CheckFile(utf8)) {
    errno = error == ERROR_ACCESS_DENIED ? EACCES : ENOENT;
    return nullptr;
  }
  const int descriptor = open(TheMachine().drive.HostPath(utf8).c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) {
    return nullptr;
  }
  Stream* const stream =
      new Stream{descriptor, TheMachine().handles.Open(std::make_shared<FileObject>())};
  std::FILE* const file = fopencookie(stream, "rb", {ReadStream, nullptr, SeekStream, CloseStream});
  if (file == nullptr) {
    CloseStream(stream);
  }
  return file;
}
