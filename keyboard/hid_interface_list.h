// The steps that every walk over the present HID interfaces shares.
//
// The collection search and the version reading list and open the same interfaces, but each has its
// own order of checks, its own access and its own diagnostics; those stay with them. Used inside
// this folder only, on the thread of the update decision.
#pragma once

#include <windows.h>

#include <cfgmgr32.h>
#include <hidsdi.h>

#include "common/heap_buffer.h"
#include "common/multi_string.h"

// The paths of the present interfaces of one device interface class. Call the three steps in order;
// the interfaces may change in between, so each step can fail by itself.
class HidInterfaceList {
 public:
  HidInterfaceList() : listChars_(0) {}

  // Asks how long the list is, in characters with its final zero.
  CONFIGRET Measure(GUID& classGuid);
  ULONG listChars() const { return listChars_; }

  // Takes zero-filled memory for the measured length. False when it is refused.
  bool Allocate();

  // Fills the memory.
  CONFIGRET Fetch(GUID& classGuid);

  // The paths in list order; none while nothing has been fetched.
  MultiStringWalk Paths() const { return MultiStringWalk(buffer_.data(), buffer_.count()); }

 private:
  ULONG listChars_;
  HeapBuffer<WCHAR> buffer_;
};

// Opens one interface beside whoever else has it open. The caller closes the handle, which is
// INVALID_HANDLE_VALUE after a failure; GetLastError tells why.
HANDLE OpenHidInterface(const WCHAR* path, DWORD desiredAccess);

// Reads the attributes; false when they cannot be read, and attributes are then all zero.
bool ReadHidAttributes(HANDLE file, HIDD_ATTRIBUTES& attributes);

// Whether these are the attributes of the supported keyboard.
bool IsKeyboard(const HIDD_ATTRIBUTES& attributes);
