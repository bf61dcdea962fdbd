// What a handle to a process, a token or a registry key allows its holder to do.
#pragma once

#include <windows.h>

namespace platform {

// The rights that a handle was opened with. The machine's service runs as LocalSystem, to whom
// nothing is denied that these objects have: it is granted what it asks for, and for
// MAXIMUM_ALLOWED everything. A right that it did not ask for is missing, as on Windows. Windows
// checks rights when a handle is opened and then goes by what the handle was granted. So a call
// that works on a test machine with all rights can fail on another; here it fails at once.
class Access {
 public:
  // all: every right that an object of the kind has.
  Access(DWORD asked, DWORD all)
      : asked_(asked), granted_((asked & MAXIMUM_ALLOWED) != 0 ? all : asked) {}

  // Whether a call that needs these rights may go on; all of them must be there.
  bool Allows(DWORD rights) const { return (granted_ & rights) == rights; }

  // The caller's own words, for a test to look at.
  DWORD asked() const { return asked_; }

  // Generic rights, and those that a privilege would have to grant, are not modelled.
  static bool IsModelled(DWORD asked, DWORD all) { return (asked & ~(all | MAXIMUM_ALLOWED)) == 0; }

 private:
  DWORD asked_;
  DWORD granted_;
};

}  // namespace platform
