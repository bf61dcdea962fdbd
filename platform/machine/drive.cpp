#include "platform/machine/drive.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <tuple>

#include "platform/machine/text.h"

namespace platform {

namespace {

namespace fs = std::filesystem;

// In units of 100 ns since 1601. All files are of one age unless a script says otherwise.
constexpr std::uint64_t NewYear2020 = 132'223'104'000'000'000;

// Two halves and no 64-bit number: Windows does not promise the alignment for one.
FILETIME ToFileTime(std::uint64_t time) {
  return {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
}

// Splits at both separators; a run of them counts as one, as on Windows.
std::vector<std::string> Split(const std::string& path) {
  std::vector<std::string> parts;
  std::size_t at = 0;
  while ((at = path.find_first_not_of("\\/", at)) != std::string::npos) {
    const std::size_t end = std::min(path.find_first_of("\\/", at), path.size());
    parts.push_back(path.substr(at, end - at));
    at = end;
  }
  return parts;
}

std::vector<std::string> NamesIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    names.push_back(at->path().filename().string());
  }
  return names;
}

// The entry as it is spelled in the folder, or the name itself when there is none.
std::string SpelledAsIn(const std::string& folder, const std::string& name) {
  std::error_code error;
  if (fs::exists(folder + "/" + name, error)) {
    return name;
  }
  const std::u16string wide = WideFromUtf8(name);
  for (const std::string& candidate : NamesIn(folder)) {
    if (EqualsIgnoringCase(WideFromUtf8(candidate), wide)) {
      return candidate;
    }
  }
  return name;
}

// Both are in upper case. The names are short, so trying every length for '*' is fast enough.
bool Matches(std::u16string_view name, std::u16string_view pattern) {
  if (pattern.empty()) {
    return name.empty();
  }
  if (pattern[0] == u'*') {
    return Matches(name, pattern.substr(1)) || (!name.empty() && Matches(name.substr(1), pattern));
  }
  return !name.empty() && name[0] == pattern[0] && Matches(name.substr(1), pattern.substr(1));
}

}  // namespace

// Parts like ".." could lead out of the folder that stands for the drive; nobody needs them.
std::string Drive::HostPath(const std::string& path) const {
  const std::vector<std::string> parts = Split(path);
  if (hostFolder_.empty() || parts.empty() || !EqualsIgnoringCase(WideFromUtf8(parts[0]), u"C:")) {
    return {};
  }
  std::string asSpelled = hostFolder_;
  for (std::size_t i = 1; i < parts.size(); ++i) {
    if (parts[i] == "." || parts[i] == "..") {
      return {};
    }
    asSpelled += "/" + parts[i];
  }
  // Most callers spell a path as it was made, and then one look at the host's folders is enough.
  std::error_code error;
  if (fs::exists(asSpelled, error)) {
    return asSpelled;
  }
  std::string host = hostFolder_;
  for (std::size_t i = 1; i < parts.size(); ++i) {
    host += "/" + SpelledAsIn(host, parts[i]);
  }
  return host;
}

bool Drive::MakeFolder(const std::string& path) {
  const std::string host = HostPath(path);
  std::error_code error;
  fs::create_directories(host, error);
  return !host.empty() && fs::is_directory(host, error);
}

bool Drive::WriteFile(const std::string& path, const void* bytes, std::size_t count) {
  if (!MakeFolder(path.substr(0, path.find_last_of("\\/")))) {
    return false;
  }
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
      std::fopen(HostPath(path).c_str(), "wb"), [](std::FILE* open) { return std::fclose(open); });
  return file != nullptr && (count == 0 || std::fwrite(bytes, 1, count, file.get()) == count);
}

bool Drive::Remove(const std::string& path) {
  const std::string host = HostPath(path);
  std::error_code error;
  return !host.empty() && fs::remove_all(host, error) > 0 && !error;
}

void Drive::SetTimes(const std::string& path, std::uint64_t creation, std::uint64_t lastWrite) {
  const std::scoped_lock lock(lock_);
  Facts& facts = FactsFor(path);
  facts.creation = creation;
  facts.lastWrite = lastWrite;
}

void Drive::SetListingRank(const std::string& path, int rank) {
  const std::scoped_lock lock(lock_);
  FactsFor(path).rank = rank;
}

Drive::Facts& Drive::FactsFor(const std::string& path) {
  return facts_.try_emplace(HostPath(path), Facts{NewYear2020, NewYear2020, 0}).first->second;
}

Drive::Facts Drive::FactsOf(const std::string& hostPath) const {
  const std::scoped_lock lock(lock_);
  const auto found = facts_.find(hostPath);
  return found == facts_.end() ? Facts{NewYear2020, NewYear2020, 0} : found->second;
}

WIN32_FIND_DATAA Drive::RecordOf(const std::string& hostPath, const std::string& name) const {
  const Facts facts = FactsOf(hostPath);
  std::error_code error;
  WIN32_FIND_DATAA record = {};
  if (fs::is_directory(hostPath, error)) {
    record.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
  } else {
    const std::uintmax_t bytes = fs::file_size(hostPath, error);
    record.dwFileAttributes = FILE_ATTRIBUTE_ARCHIVE;
    record.nFileSizeHigh = error ? 0 : static_cast<DWORD>(bytes >> 32);
    record.nFileSizeLow = error ? 0 : static_cast<DWORD>(bytes);
  }
  record.ftCreationTime = ToFileTime(facts.creation);
  record.ftLastAccessTime = ToFileTime(facts.lastWrite);
  record.ftLastWriteTime = ToFileTime(facts.lastWrite);
  // The host's names have at most 255 bytes, and the code page never needs more than UTF-8 does.
  std::strncpy(record.cFileName, AnsiFromUtf8(name).c_str(), sizeof(record.cFileName) - 1);
  return record;
}

// Windows tells apart a folder that is not there, a path through a file, and a folder where nothing
// matches. The caller logs the number.
DWORD Drive::List(const std::string& path, std::vector<WIN32_FIND_DATAA>& entries) const {
  entries.clear();
  const std::size_t patternAt = path.find_last_of("\\/") + 1;
  const std::string folder = patternAt == 0 ? "" : HostPath(path.substr(0, patternAt));
  std::error_code error;
  if (folder.empty() || !fs::exists(folder, error)) {
    return ERROR_PATH_NOT_FOUND;
  }
  if (!fs::is_directory(folder, error)) {
    return ERROR_DIRECTORY;
  }

  struct Match {
    int rank;
    std::u16string sortName;
    std::string name;
  };
  std::vector<Match> matches;
  const std::u16string pattern = UpperCase(WideFromUtf8(path.substr(patternAt)));
  for (const std::string& name : NamesIn(folder)) {
    std::u16string sortName = UpperCase(WideFromUtf8(name));
    if (Matches(sortName, pattern)) {
      matches.push_back({FactsOf(folder + "/" + name).rank, std::move(sortName), name});
    }
  }
  std::sort(matches.begin(), matches.end(), [](const Match& left, const Match& right) {
    return std::tie(left.rank, left.sortName) < std::tie(right.rank, right.sortName);
  });
  for (const Match& match : matches) {
    entries.push_back(RecordOf(folder + "/" + match.name, match.name));
  }
  return entries.empty() ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS;
}

// A folder opens for no stream: Windows says that access is denied.
DWORD Drive::CheckFile(const std::string& path) const {
  const std::string host = HostPath(path);
  std::error_code error;
  if (host.empty() || !fs::is_directory(fs::path(host).parent_path(), error)) {
    return ERROR_PATH_NOT_FOUND;
  }
  if (!fs::exists(host, error)) {
    return ERROR_FILE_NOT_FOUND;
  }
  return fs::is_directory(host, error) ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

}  // namespace platform
