// A folder of the host for one run's files, where TMPDIR points. Any thread.
//
// Nothing is left behind: a folder goes with its object, and one whose process was killed before it
// came to that goes when the next folder is made. The process id in the name is for people; whether
// a folder is still in use, its lock tells. The host lets go of that when the last process is gone
// that made the folder or was forked from it, and an id may have been given to another one by then.
#pragma once

#include <string>

namespace simulator {

class HostFolder {
 public:
  // Removes what dead processes left, and makes a folder. Throws when the host has none for us.
  HostFolder();

  // Removes the folder with all that is in it.
  ~HostFolder();

  HostFolder(const HostFolder&) = delete;
  HostFolder& operator=(const HostFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
  int lock_ = -1;  // the open folder
};

}  // namespace simulator
