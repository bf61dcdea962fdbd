// What the HID and the WinUSB calls share: the device behind a file handle.
#pragma once

#include <windows.h>

#include <memory>

#include "platform/winapi/refusal.h"

namespace platform {

// The opened device; null, with the last error set, when the handle is none or names another file.
inline std::shared_ptr<DeviceFile> GetDeviceFile(HANDLE handle, Call call) {
  const auto object = TheMachine().handles.Find(handle, HandleKind::File, NameOf(call));
  auto file = std::dynamic_pointer_cast<DeviceFile>(object);
  if (file == nullptr) {
    SetLastError(object == nullptr ? ERROR_INVALID_HANDLE : ERROR_INVALID_FUNCTION);
  }
  return file;
}

}  // namespace platform
