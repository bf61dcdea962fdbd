#include "keyboard/hid_discovery.h"

#include <cstdio>

#include "common/debug_output.h"
#include "common/handles.h"
#include "keyboard/hid_interface_list.h"

HANDLE keyboardHandle = INVALID_HANDLE_VALUE;

namespace {

constexpr u16 WantedUsagePage = 0x0001;
constexpr u16 WantedUsage = 0x0000;

// Asking for none is why the collection opens whoever else has it open. The report is sent on this
// very handle; a driver grants that without an access.
constexpr DWORD NoAccess = 0;

bool ListInterfaces(GUID& classGuid, HidInterfaceList& list) {
  const CONFIGRET measured = list.Measure(classGuid);
  if (measured != CR_SUCCESS) {
    WriteDebugFormat(TEXT("Error 0x%x retrieving device interface list size.\n"), measured);
    return false;
  }
  if (list.listChars() <= 1) {
    WriteDebugText(
        TEXT("Error: No active device interfaces found.\n Is the sample driver loaded?"));
    return false;
  }
  if (!list.Allocate()) {
    WriteDebugText(TEXT("Error allocating memory for device interface list.\n"));
    return false;
  }
  const CONFIGRET fetched = list.Fetch(classGuid);
  if (fetched != CR_SUCCESS) {
    WriteDebugFormat(TEXT("Error 0x%x retrieving device interface list size.\n"), fetched);
    return false;
  }
  return true;
}

bool ReadCapabilities(HANDLE file, HIDP_CAPS& capabilities) {
  PHIDP_PREPARSED_DATA preparsedData = nullptr;
  if (!HidD_GetPreparsedData(file, &preparsedData)) {
    WriteDebugText(TEXT("Error: HidD_GetPreparsedData failed \n"));
    return false;
  }
  const bool read = HidP_GetCaps(preparsedData, &capabilities) == HIDP_STATUS_SUCCESS;
  if (!read) {
    WriteDebugText(TEXT("Error: HidP_GetCaps failed \n"));
  }
  HidD_FreePreparsedData(preparsedData);
  return read;
}

// The one line of the search that goes to standard output, which may be a pipe.
void PrintCapabilities(const HIDP_CAPS& capabilities) {
  std::printf("Caps.UP=0x%x Caps.Usage=0x%x\n", static_cast<unsigned int>(capabilities.UsagePage),
              static_cast<unsigned int>(capabilities.Usage));
  std::fflush(stdout);
}

bool IsWantedCollection(HANDLE file) {
  HIDD_ATTRIBUTES attributes;
  if (!ReadHidAttributes(file, attributes)) {
    WriteDebugText(TEXT("Error: HidD_GetAttributes failed \n"));
    return false;
  }
  HIDP_CAPS capabilities = {};
  if (!ReadCapabilities(file, capabilities)) {
    return false;
  }
  PrintCapabilities(capabilities);
  return capabilities.UsagePage == WantedUsagePage && capabilities.Usage == WantedUsage &&
         IsKeyboard(attributes);
}

}  // namespace

i32 FindHidDevice(GUID* classGuid, HANDLE* result) {
  *result = INVALID_HANDLE_VALUE;

  HidInterfaceList list;
  if (!ListInterfaces(*classGuid, list)) {
    return 0;
  }

  WriteDebugFormat(TEXT("\n....looking for our HID device (with UP=0x%04X and Usage=0x%02X)\n"),
                   WantedUsagePage, WantedUsage);
  MultiStringWalk paths = list.Paths();
  while (const WCHAR* path = paths.NextString()) {
    FileHandle file(OpenHidInterface(path, NoAccess));
    if (!file.valid()) {
      const DWORD error = GetLastError();
      WriteDebugFormat(TEXT("Warning: CreateFile failed: %d\n"), error);
      continue;
    }
    if (IsWantedCollection(file.get())) {
      WriteDebugText(TEXT("Success: Found my KBD.. \n"));
      *result = file.Release();
      return 1;
    }
  }
  return 0;
}
