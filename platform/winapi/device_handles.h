// What the HID and the WinUSB calls share: the device behind a file handle. Windows opens a device
// by the path of one of its interfaces, so what such a handle leads to is one interface.
#pragma once

#include <windows.h>

#include <memory>

#include "platform/winapi/platform_call.h"

namespace platform {

// The opened device. Null, with the last error set, when the handle is none or names a file on the
// drive: a stream of the service is a file handle, too. Which driver the device has is the caller's
// next question: a HID call on a WinUSB device fails as it does on Windows, with
// ERROR_INVALID_FUNCTION. The device stays usable to the call while it holds the pointer, even when
// the service closes the handle meanwhile. When it has been pulled it is still found here: the
// calls look for that themselves, each with an error of its own.
//
// A handle that was closed, or that is of another kind, is a fault of the service besides, with the
// call's name in it. On success the last error stays as it was.
inline std::shared_ptr<DeviceFile> GetDeviceFile(HANDLE handle, const PlatformCall& call) {
  const std::shared_ptr<KernelObject> object =
      TheMachine().handles.Find(handle, HandleKind::File, call.name());
  auto file = std::dynamic_pointer_cast<DeviceFile>(object);
  if (file == nullptr) {
    SetLastError(object == nullptr ? ERROR_INVALID_HANDLE : ERROR_INVALID_FUNCTION);
  }
  return file;
}

}  // namespace platform
