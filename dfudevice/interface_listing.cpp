#include "dfudevice/interface_listing.h"

#include <initguid.h>

#include <cfgmgr32.h>
#include <devpkey.h>

#include <cstring>

#include "common/debug_output.h"
#include "common/heap_buffer.h"
#include "common/multi_string.h"
#include "common/wide_string.h"
#include "dfudevice/dfu_interface.h"

namespace {

// Buffer lengths in bytes, as the two property calls count them. 253 is odd, so that a description
// of 126 characters with its terminator no longer fits.
constexpr ULONG InstanceIdBytes = 400;
constexpr ULONG DescriptionBytes = 253;

constexpr WCHAR UnnamedDevice[] = TEXT("(Unnamed DFU device)");

// The instance id of the device behind an interface. The last character is never written and ends
// the text whatever the call stores.
struct InstanceId {
  WCHAR text[InstanceIdBytes / sizeof(WCHAR) + 1];
};

bool ReadInstanceId(const WCHAR* path, InstanceId& instanceId) {
  DEVPROPTYPE type = 0;
  ULONG bytes = InstanceIdBytes;
  return CM_Get_Device_Interface_PropertyW(path, &DEVPKEY_Device_InstanceId, &type,
                                           reinterpret_cast<PBYTE>(instanceId.text), &bytes,
                                           0) == CR_SUCCESS;
}

// Reads the description into a zero-filled text, which ends as an instance id does.
bool ReadDescription(InstanceId& instanceId, WCHAR (&text)[DescriptionBytes / sizeof(WCHAR) + 2]) {
  DEVINST node = 0;
  if (CM_Locate_DevNodeW(&node, instanceId.text, CM_LOCATE_DEVNODE_PHANTOM) != CR_SUCCESS) {
    return false;
  }
  ULONG bytes = DescriptionBytes;
  return CM_Get_DevNode_Registry_PropertyW(node, CM_DRP_DEVICEDESC, nullptr, text, &bytes, 0) ==
         CR_SUCCESS;
}

// Takes the description of a device for display. Each character keeps its low byte only, as a
// signed one: plain ASCII comes through as it is.
void TakeDescription(const WCHAR* description, DisplayName& displayName) {
  displayName = {};
  for (u32 i = 0; i < DisplayNameChars && description[i] != 0; ++i) {
    displayName.text[i] = static_cast<WCHAR>(static_cast<signed char>(description[i] & 0xFF));
  }
}

void TakeUnnamed(DisplayName& displayName) {
  static_assert(sizeof(UnnamedDevice) <= sizeof(displayName.text));
  displayName = {};
  std::memcpy(displayName.text, UnnamedDevice, sizeof(UnnamedDevice));
}

// Enters one interface. Without its instance id its slot stays empty and its device cannot be asked
// for a description.
void TakeInterface(const WCHAR* path, i32 index, DfuDeviceList& list, DisplayName& displayName) {
  InstanceId instanceId = {};
  if (!ReadInstanceId(path, instanceId)) {
    TakeUnnamed(displayName);
    return;
  }
  if (index < DfuListSlots) {
    // A path that does not fit leaves the slot empty: cut short it would name another device.
    NarrowToAnsi(path, list.paths[index], DfuListPathBytes);
  }
  WCHAR description[DescriptionBytes / sizeof(WCHAR) + 2] = {};
  if (ReadDescription(instanceId, description)) {
    TakeDescription(description, displayName);
  } else {
    TakeUnnamed(displayName);
  }
}

}  // namespace

bool ListDfuInterfaces(DfuDeviceList& list, DisplayName& displayName) {
  list = {};
  displayName = {};
  GUID classGuid = DfuInterfaceGuid;
  ULONG listChars = 0;
  // The size covers the interfaces that are not present too, so one that arrives before the list is
  // read still fits.
  if (CM_Get_Device_Interface_List_SizeW(&listChars, &classGuid, nullptr,
                                         CM_GET_DEVICE_INTERFACE_LIST_ALL_DEVICES) != CR_SUCCESS) {
    WriteDebugText(TEXT("Get buffer size fail.\n"));
    return false;
  }

  HeapBuffer<WCHAR> buffer;
  if (!buffer.Allocate(listChars)) {
    WriteDebugText(TEXT("Out of memory\n"));
    return false;
  }

  // A failed call leaves the buffer as it is: zero-filled, an empty list.
  CM_Get_Device_Interface_ListW(&classGuid, nullptr, buffer.data(), listChars,
                                CM_GET_DEVICE_INTERFACE_LIST_PRESENT);
  MultiStringWalk paths(buffer.data(), buffer.count());
  while (const WCHAR* path = paths.NextString()) {
    DisplayName name = {};
    TakeInterface(path, list.count, list, name);
    if (list.count == 0) {
      displayName = name;
    }
    ++list.count;
  }
  return true;
}
