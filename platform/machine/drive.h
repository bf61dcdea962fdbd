// The machine's drive C:, a folder of the host.
//
// Paths are Windows' own ("C:\Windows\...") in UTF-8; names are compared ignoring case. A listing
// comes sorted by name, as NTFS gives it, and every entry has the same fixed times until it is
// given others, so that a run does not depend on when its files were written. Short (8.3) names are
// not kept, as on a volume where they are switched off.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace platform {

// Everything that the service finds there was put there by a script: a package in the driver store,
// its notifier. The service only reads. Any thread.
class Drive {
 public:
  explicit Drive(std::string hostFolder) : hostFolder_(std::move(hostFolder)) {}

  // --- For the script of a run ---

  // Where the host keeps the file or folder; empty when the path names nothing on drive C:. Parts
  // of it need not exist. Each part is spelled as the host's folder has it, whatever the case in
  // the path.
  std::string HostPath(const std::string& path) const;

  // Both make the folders that are missing. False when the host refuses.
  bool MakeFolder(const std::string& path);
  bool WriteFile(const std::string& path, const void* bytes, std::size_t count);

  // A file, or a folder with all that is in it. False when there was nothing to remove.
  bool Remove(const std::string& path);

  // In units of 100 ns since 1601, as FILETIME counts. Only what listings tell changes: the host's
  // file keeps its own times. The last access is shown as the last write.
  void SetTimes(const std::string& path, std::uint64_t creation, std::uint64_t lastWrite);

  // Entries of a lower rank are listed before those of a higher one; 0 where nothing was set.
  void SetListingRank(const std::string& path, int rank);

  // --- For the calls of the layer ---

  // The entries of a folder whose names match the path's last part, in which '*' stands for any
  // characters. The result is a Windows error, and then the list is empty.
  DWORD List(const std::string& path, std::vector<WIN32_FIND_DATAA>& entries) const;

  // ERROR_SUCCESS when the path names a file, else the error that opening it for reading gives.
  DWORD CheckFile(const std::string& path) const;

 private:
  // What the host keeps otherwise or not at all.
  struct Facts {
    std::uint64_t creation;
    std::uint64_t lastWrite;
    int rank;
  };

  Facts FactsOf(const std::string& hostPath) const;
  Facts& FactsFor(const std::string& path);
  WIN32_FIND_DATAA RecordOf(const std::string& hostPath, const std::string& name) const;

  const std::string hostFolder_;
  mutable std::mutex lock_;
  std::map<std::string, Facts> facts_;  // by host path
};

}  // namespace platform
