#include "service/package_location.h"

#include <windows.h>

#include <cstddef>
#include <cstring>

#include "common/debug_output.h"
#include "common/handles.h"
#include "common/package_values.h"
#include "common/wide_string.h"

FirmwareVersion packageVersion = {};

namespace {

constexpr char FolderPattern[] =
    "C:\\Windows\\System32\\DriverStore\\FileRepository\\vantrelkbd.inf_arm64*";

constexpr char FilePattern[] = "*.dfu";
constexpr std::size_t FilePatternLength = sizeof(FilePattern) - 1;

// What the prefix, "\", the file pattern and the NUL leave for the folder name.
constexpr std::size_t MaxFolderNameLength =
    PackagePathBytes - FileRepositoryPathBytes - 1 - sizeof(FilePattern);
static_assert(MaxFolderNameLength == 206);

// The length of the record's name, which is bounded by the record whatever it holds.
std::size_t NameLength(const WIN32_FIND_DATAA& record) {
  const void* end = std::memchr(record.cFileName, '\0', sizeof(record.cFileName));
  if (end == nullptr) {
    return sizeof(record.cFileName);
  }
  return static_cast<std::size_t>(static_cast<const char*>(end) - record.cFileName);
}

bool IsOlder(const WIN32_FIND_DATAA& one, const WIN32_FIND_DATAA& other) {
  const LONG byCreation = CompareFileTime(&one.ftCreationTime, &other.ftCreationTime);
  if (byCreation != 0) {
    return byCreation == -1;
  }
  return CompareFileTime(&one.ftLastWriteTime, &other.ftLastWriteTime) == -1;
}

// Appends to packagePath as much of the text as leaves room for the NUL, and returns the new length
// in bytes.
std::size_t AppendToPath(std::size_t length, const char* text, std::size_t textLength) {
  const std::size_t room = PackagePathBytes - 1 - length;
  const std::size_t taken = textLength < room ? textLength : room;
  std::memcpy(packagePath + length, text, taken);
  packagePath[length + taken] = '\0';
  return length + taken;
}

// Searches the package folder for its .dfu file. Whatever comes of it, packagePath is left with the
// prefix, the folder name and "\", and folderLength with the length of that. Returns the open
// search, INVALID_HANDLE_VALUE when it found nothing.
HANDLE SearchPackageFolder(WIN32_FIND_DATAA& found, std::size_t& folderLength) {
  const std::size_t nameLength = NameLength(packageFolder);

  // Nothing of a longer path from before may stay behind.
  std::memset(packagePath + FileRepositoryPathBytes, 0, PackagePathBytes - FileRepositoryPathBytes);
  const std::size_t nameEnd =
      AppendToPath(FileRepositoryPathBytes, packageFolder.cFileName, nameLength);
  folderLength = AppendToPath(nameEnd, "\\", 1);
  if (nameLength > MaxFolderNameLength) {
    return INVALID_HANDLE_VALUE;
  }

  AppendToPath(folderLength, FilePattern, FilePatternLength);
  const HANDLE search = FindFirstFileA(packagePath, &found);
  std::memset(packagePath + folderLength, 0, FilePatternLength);
  return search;
}

// As SearchPackageFolder, and the full path of what was found fits into packagePath too.
HANDLE SearchPackageFile(WIN32_FIND_DATAA& found, std::size_t& folderLength) {
  const HANDLE search = SearchPackageFolder(found, folderLength);
  if (search == INVALID_HANDLE_VALUE) {
    return search;
  }
  if (NameLength(found) < PackagePathBytes - folderLength) {
    return search;
  }
  FindClose(search);
  return INVALID_HANDLE_VALUE;
}

// The value of the digit at the position, which is out of 0 to 9 for anything but a digit. The code
// counts as signed and as 0 beyond the end of the name.
i32 DigitAt(const WIN32_FIND_DATAA& record, std::size_t position) {
  const char character = position < NameLength(record) ? record.cFileName[position] : '\0';
  return static_cast<signed char>(character) - '0';
}

bool IsDigit(i32 value) {
  return value >= 0 && value <= 9;
}

}  // namespace

void SelectPackageFolder() {
  WIN32_FIND_DATAA best = {};
  const FindHandle search(FindFirstFileA(FolderPattern, &best));
  if (!search.valid()) {
    return;
  }

  WIN32_FIND_DATAA next = {};
  while (FindNextFileA(search.get(), &next)) {
    if (IsOlder(best, next)) {
      best = next;
    }
  }
  packageFolder = best;
}

i32 ReadPackageVersion() {
  WIN32_FIND_DATAA found = {};
  std::size_t folderLength = 0;
  const FindHandle search(SearchPackageFile(found, folderLength));
  if (!search.valid()) {
    return 0;
  }

  packageVersion.major = DigitAt(found, MajorPosition);
  packageVersion.minor = DigitAt(found, MinorPosition);
  packageVersion.modelId = DigitAt(found, ModelIdPosition);
  packageVersion.hwRev = DigitAt(found, HwRevPosition);

  // The hardware revision is named in the line but not printed.
  WriteDebugFormat(
      TEXT("majorFwServer: %d --- minorFwServer: %d--- model_id_Server: %d---HW_rev_Server\n"),
      packageVersion.major, packageVersion.minor, packageVersion.modelId);
  return IsDigit(packageVersion.major) && IsDigit(packageVersion.minor) &&
                 IsDigit(packageVersion.modelId) && IsDigit(packageVersion.hwRev)
             ? 1
             : 0;
}

i32 FindPackageDfuFile() {
  WIN32_FIND_DATAA found = {};
  std::size_t folderLength = 0;
  const FindHandle search(SearchPackageFile(found, folderLength));
  if (!search.valid()) {
    return 0;
  }

  AppendToPath(folderLength, found.cFileName, NameLength(found));

  WCHAR widePath[PackagePathBytes];
  if (WidenAnsi(packagePath, widePath, PackagePathBytes)) {
    WriteDebugText(widePath);
  }
  return 1;
}
