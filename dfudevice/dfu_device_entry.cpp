#include "dfudevice/dfu_device_entry.h"

#include "common/wide_string.h"
#include "dfudevice/interface_listing.h"

namespace {

void CloseHandles(DfuDeviceEntry& entry) {
  WinUsb_Free(entry.winUsbHandle);
  CloseHandle(entry.fileHandle);
  entry.winUsbHandle = nullptr;
  entry.fileHandle = INVALID_HANDLE_VALUE;
}

}  // namespace

void OpenFirstDfuDevice(DfuDeviceEntry& entry) {
  entry = {};
  entry.fileHandle = INVALID_HANDLE_VALUE;
  // A list of its own, so that opening never meets a refresh on another thread. When the listing
  // fails, or finds nothing, the path is empty and cannot be opened.
  DfuDeviceList list;
  DisplayName displayName;
  ListDfuInterfaces(list, displayName);
  WidenAnsi(list.paths[0], entry.path, DfuPathChars);

  entry.fileHandle =
      CreateFileW(entry.path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL, nullptr);
  if (entry.fileHandle == INVALID_HANDLE_VALUE) {
    return;
  }
  if (WinUsb_Initialize(entry.fileHandle, &entry.winUsbHandle)) {
    entry.opened = 1;
    return;
  }
  CloseHandles(entry);
}

void CloseDfuDevice(DfuDeviceEntry& entry) {
  if (entry.opened != 1) {
    return;
  }
  CloseHandles(entry);
  entry.opened = 0;
}
