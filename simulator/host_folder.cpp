#include "simulator/host_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace simulator {

namespace {

namespace fs = std::filesystem;

constexpr char NameBegin[] = "vantrel-";

// The folder, locked for this process; -1 while another one has it.
// A lock of the file system goes with the process that holds it, however that ends; no file has to
// be cleared away for it.
int Lock(const std::string& path) {
  const int folder = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (folder >= 0 && flock(folder, LOCK_EX | LOCK_NB) != 0) {
    close(folder);
    return -1;
  }
  return folder;
}

// Its lock goes last: until then nobody else takes it for a leftover.
void Remove(const std::string& path, int lock) {
  std::error_code ignored;
  fs::remove_all(path, ignored);
  close(lock);
}

// Whether a name is one that HostFolder makes, process and six characters included: a person may
// have a folder of their own that begins alike.
bool IsNameOfOurs(const std::string& name) {
  const std::size_t digits = sizeof(NameBegin) - 1;
  const std::size_t dash = name.find_first_not_of("0123456789", digits);
  return name.starts_with(NameBegin) && dash != std::string::npos && dash > digits &&
         name[dash] == '-' && name.size() == dash + 1 + 6;
}

bool IsOurs(const fs::path& path) {
  struct stat facts {};
  return IsNameOfOurs(path.filename().string()) && lstat(path.c_str(), &facts) == 0 &&
         S_ISDIR(facts.st_mode) && facts.st_uid == geteuid();
}

// Whoever was killed could not clear up. The next run does it, so that nothing piles up.
void RemoveLeftovers(const fs::path& parent) {
  std::error_code error;
  for (fs::directory_iterator at(parent, error), end; !error && at != end; at.increment(error)) {
    if (IsOurs(at->path())) {
      const int lock = Lock(at->path().string());
      if (lock >= 0) {
        Remove(at->path().string(), lock);
      }
    }
  }
}

[[noreturn]] void Throw(const std::error_code& error) {
  throw std::runtime_error("cannot make a folder where TMPDIR points: " + error.message());
}

}  // namespace

HostFolder::HostFolder() {
  std::error_code error;
  const fs::path parent = fs::temp_directory_path(error);
  if (error) {
    Throw(error);
  }
  RemoveLeftovers(parent);
  const std::string pattern = parent / (NameBegin + std::to_string(getpid()) + "-XXXXXX");
  // A folder that is not locked yet looks like a leftover. Whoever took it for one has removed it,
  // or is about to: then there is another.
  do {
    if (lock_ >= 0) {
      close(lock_);
    }
    path_ = pattern;
    if (mkdtemp(path_.data()) == nullptr) {
      Throw({errno, std::generic_category()});
    }
    lock_ = Lock(path_);
  } while (lock_ < 0 || !fs::exists(path_, error));
}

HostFolder::~HostFolder() {
  Remove(path_, lock_);
}

}  // namespace simulator
