#include "dfudevice/dfu_device_list.h"

#include <windows.h>
#include <winusb.h>

#include "common/debug_output.h"
#include "common/wide_string.h"
#include "dfudevice/descriptors.h"
#include "dfudevice/dfu_device_entry.h"
#include "dfudevice/memory_map.h"

DfuDeviceList dfuDeviceList = {};

namespace {

constexpr ULONG DeviceDescriptorBytes = 18;

// Fills memoryMapTable from an opened device; says what is wrong with the device when it cannot.
bool ReadDevice(const DfuDeviceEntry& entry) {
  u8 deviceDescriptor[DeviceDescriptorBytes] = {};
  ULONG transferred = 0;
  if (!WinUsb_GetDescriptor(entry.winUsbHandle, USB_DEVICE_DESCRIPTOR_TYPE, 0, 0, deviceDescriptor,
                            DeviceDescriptorBytes, &transferred)) {
    WriteDebugText(TEXT("Unable to get descriptor... Bad Firmware"));
    return false;
  }
  // The failures of the decoding are 0 and a status, so only a 1 will do.
  if (DecodeMemoryMaps(entry.winUsbHandle) != 1) {
    WriteDebugText(TEXT("Unable to find or decode device mapping... Bad Firmware"));
    return false;
  }
  NarrowToAnsi(entry.path, memoryMapTable.devicePath, MemoryMapPathBytes);
  return true;
}

void WriteFoundLines(const WCHAR* displayName) {
  const i32 count = dfuDeviceList.count;
  WriteDebugFormat(TEXT("%d Device(s) found : \n"), count);
  for (i32 i = 0; i < count; ++i) {
    WriteDebugFormat(TEXT("Device [%d]: %s, having [%d] alternate targets \n"), count, displayName,
                     memoryMapTable.mapCount);
  }
}

}  // namespace

i32 RefreshDfuDevices() {
  DisplayName displayName;
  if (!ListDfuInterfaces(dfuDeviceList, displayName)) {
    return 0;
  }
  EmptyMemoryMapTable(memoryMapTable);
  if (dfuDeviceList.count == 0) {
    WriteDebugFormat(TEXT("%d Device(s) found. Plug your DFU Device ! \n"), dfuDeviceList.count);
    return 0;
  }

  DfuDeviceEntry entry;
  OpenFirstDfuDevice(entry);
  if (entry.opened != 1) {
    WriteDebugFormat(TEXT("%d Device(s) found. Can't open device winusb handle \n"),
                     dfuDeviceList.count);
    return 0;
  }
  const bool usable = ReadDevice(entry);
  CloseDfuDevice(entry);

  WriteFoundLines(displayName.text);
  return usable ? 1 : 0;
}
