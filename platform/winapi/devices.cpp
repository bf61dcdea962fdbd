// The Configuration Manager's calls: lists of device interfaces, device nodes, notifications.
//
// <initguid.h> makes this file define the property key that it knows.
#include <initguid.h>

#include <cfgmgr32.h>
#include <devpkey.h>
#include <windows.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/winapi/platform_call.h"

using platform::Call;
using platform::DeviceNode;
using platform::NotificationRegistration;
using platform::StatusCall;
using platform::TheMachine;

namespace {

// The node above all devices; it has no interface and no description.
constexpr DEVINST RootNode = 1;

// These calls return a CONFIGRET of their own numbering and leave the last error alone.
class ConfigCall : public StatusCall<CONFIGRET> {
 public:
  explicit ConfigCall(Call call) : StatusCall(call, CR_CALL_NOT_IMPLEMENTED) {}
};

// In characters: every path with its NUL, and the NUL that closes the list.
ULONG ListChars(const std::vector<std::u16string>& paths) {
  std::size_t chars = 1;
  for (const std::u16string& path : paths) {
    chars += path.size() + 1;
  }
  return static_cast<ULONG>(chars);
}

// Present only or all that were ever there; the two flags cannot be mixed.
bool IsListFlag(ULONG flags) {
  return flags == CM_GET_DEVICE_INTERFACE_LIST_PRESENT ||
         flags == CM_GET_DEVICE_INTERFACE_LIST_ALL_DEVICES;
}

// A string property, whose size is counted in bytes both ways.
CONFIGRET CopyText(const std::u16string& text, void* buffer, ULONG& bytes) {
  const ULONG needed = static_cast<ULONG>((text.size() + 1) * sizeof(WCHAR));
  const bool fits = bytes >= needed;
  bytes = needed;
  if (!fits) {
    return CR_BUFFER_SMALL;
  }
  if (buffer == nullptr) {
    return CR_INVALID_POINTER;
  }
  std::memcpy(buffer, text.c_str(), needed);
  return CR_SUCCESS;
}

bool SameKey(const DEVPROPKEY& left, const DEVPROPKEY& right) {
  return left.fmtid == right.fmtid && left.pid == right.pid;
}

}  // namespace

// The room for a list of nothing is one character. A device may come before the list is read, and
// then that call finds its buffer too small.
CONFIGRET WINAPI CM_Get_Device_Interface_List_SizeW(PULONG pulLen, LPGUID InterfaceClassGuid,
                                                    DEVINSTID_W pDeviceID, ULONG ulFlags) {
  const ConfigCall call(Call::CM_Get_Device_Interface_List_SizeW);
  call.Note(pulLen, InterfaceClassGuid, pDeviceID, ulFlags);
  if (call.fails()) {
    return call.Fail();
  }
  if (pulLen == nullptr || InterfaceClassGuid == nullptr) {
    return call.Return(CR_INVALID_POINTER);
  }
  if (pDeviceID != nullptr || !IsListFlag(ulFlags)) {
    return call.Refuse("this selection is");
  }
  *pulLen = ListChars(TheMachine().devices.ListInterfaces(
      *InterfaceClassGuid, ulFlags == CM_GET_DEVICE_INTERFACE_LIST_PRESENT));
  return call.Return(CR_SUCCESS);
}

// Nothing is written when the list does not fit.
CONFIGRET WINAPI CM_Get_Device_Interface_ListW(LPGUID InterfaceClassGuid, DEVINSTID_W pDeviceID,
                                               PWCHAR Buffer, ULONG BufferLen, ULONG ulFlags) {
  const ConfigCall call(Call::CM_Get_Device_Interface_ListW);
  call.Note(InterfaceClassGuid, pDeviceID, Buffer, BufferLen, ulFlags);
  if (call.fails()) {
    return call.Fail();
  }
  if (InterfaceClassGuid == nullptr || Buffer == nullptr || BufferLen == 0) {
    return call.Return(CR_INVALID_POINTER);
  }
  if (pDeviceID != nullptr || !IsListFlag(ulFlags)) {
    return call.Refuse("this selection is");
  }
  const std::vector<std::u16string> paths = TheMachine().devices.ListInterfaces(
      *InterfaceClassGuid, ulFlags == CM_GET_DEVICE_INTERFACE_LIST_PRESENT);
  if (BufferLen < ListChars(paths)) {
    return call.Return(CR_BUFFER_SMALL);
  }
  for (const std::u16string& path : paths) {
    std::memcpy(Buffer, path.c_str(), (path.size() + 1) * sizeof(WCHAR));
    Buffer += path.size() + 1;
  }
  *Buffer = u'\0';
  return call.Return(CR_SUCCESS);
}

// An interface is known by its path for as long as Windows knows the device, also when it has left.
// Sizes are in bytes here, where the lists count characters.
CONFIGRET WINAPI CM_Get_Device_Interface_PropertyW(LPCWSTR pszDeviceInterface,
                                                   const DEVPROPKEY* PropertyKey,
                                                   DEVPROPTYPE* PropertyType, PBYTE PropertyBuffer,
                                                   PULONG PropertyBufferSize, ULONG ulFlags) {
  const ConfigCall call(Call::CM_Get_Device_Interface_PropertyW);
  call.Note(pszDeviceInterface, PropertyKey, PropertyType, PropertyBuffer, PropertyBufferSize,
            ulFlags);
  if (call.fails()) {
    return call.Fail();
  }
  if (pszDeviceInterface == nullptr || PropertyKey == nullptr || PropertyType == nullptr ||
      PropertyBufferSize == nullptr) {
    return call.Return(CR_INVALID_POINTER);
  }
  if (ulFlags != 0 || !SameKey(*PropertyKey, DEVPKEY_Device_InstanceId)) {
    return call.Refuse("this property is");
  }
  const auto node = TheMachine().devices.FindNodeOfInterface(pszDeviceInterface);
  if (!node.has_value()) {
    return call.Return(CR_NO_SUCH_DEVICE_INTERFACE);
  }
  if (!node->instanceIdReadable) {
    *PropertyType = DEVPROP_TYPE_EMPTY;
    *PropertyBufferSize = 0;
    return call.Return(CR_NO_SUCH_VALUE);
  }
  *PropertyType = DEVPROP_TYPE_STRING;
  return call.Return(CopyText(node->instanceId, PropertyBuffer, *PropertyBufferSize));
}

// With this flag a device is found whether it is plugged in or not. No id at all stands for the
// root of the tree.
CONFIGRET WINAPI CM_Locate_DevNodeW(PDEVINST pdnDevInst, DEVINSTID_W pDeviceID, ULONG ulFlags) {
  const ConfigCall call(Call::CM_Locate_DevNodeW);
  call.Note(pdnDevInst, LPCWSTR{pDeviceID}, ulFlags);
  if (call.fails()) {
    return call.Fail();
  }
  if (pdnDevInst == nullptr) {
    return call.Return(CR_INVALID_POINTER);
  }
  if (ulFlags != CM_LOCATE_DEVNODE_PHANTOM) {
    return call.Refuse("a flag but CM_LOCATE_DEVNODE_PHANTOM is");
  }
  if (pDeviceID == nullptr || *pDeviceID == u'\0') {
    *pdnDevInst = RootNode;
    return call.Return(CR_SUCCESS);
  }
  const auto node = TheMachine().devices.FindNode(std::u16string(pDeviceID));
  if (!node.has_value()) {
    return call.Return(CR_NO_SUCH_DEVNODE);
  }
  *pdnDevInst = node->number;
  return call.Return(CR_SUCCESS);
}

// The older family of properties: numbered, with the registry's types, and sizes in bytes.
CONFIGRET WINAPI CM_Get_DevNode_Registry_PropertyW(DEVINST dnDevInst, ULONG ulProperty,
                                                   PULONG pulRegDataType, PVOID Buffer,
                                                   PULONG pulLength, ULONG ulFlags) {
  const ConfigCall call(Call::CM_Get_DevNode_Registry_PropertyW);
  call.Note(dnDevInst, ulProperty, pulRegDataType, Buffer, pulLength, ulFlags);
  if (call.fails()) {
    return call.Fail();
  }
  if (pulLength == nullptr) {
    return call.Return(CR_INVALID_POINTER);
  }
  if (ulFlags != 0 || ulProperty != CM_DRP_DEVICEDESC) {
    return call.Refuse("this property is");
  }
  const auto node = TheMachine().devices.FindNode(dnDevInst);
  if (!node.has_value() && dnDevInst != RootNode) {
    return call.Return(CR_INVALID_DEVNODE);
  }
  if (!node.has_value() || !node->description.has_value()) {
    *pulLength = 0;
    return call.Return(CR_NO_SUCH_VALUE);
  }
  if (pulRegDataType != nullptr) {
    *pulRegDataType = REG_SZ;
  }
  return call.Return(CopyText(*node->description, Buffer, *pulLength));
}

// A filter of another size comes from a caller with another idea of the record. The handle is there
// before the first callback, which is given it.
CONFIGRET WINAPI CM_Register_Notification(PCM_NOTIFY_FILTER pFilter, PVOID pContext,
                                          PCM_NOTIFY_CALLBACK pCallback,
                                          PHCMNOTIFICATION pNotifyContext) {
  const ConfigCall call(Call::CM_Register_Notification);
  call.Note(pFilter, pContext, pCallback, pNotifyContext);
  if (call.fails()) {
    return call.Fail();
  }
  if (pFilter == nullptr || pCallback == nullptr || pNotifyContext == nullptr) {
    return call.Return(CR_INVALID_POINTER);
  }
  if (pFilter->cbSize != sizeof(CM_NOTIFY_FILTER) || pFilter->Reserved != 0) {
    return call.Return(CR_INVALID_DATA);
  }
  if (pFilter->Flags != 0 || pFilter->FilterType != CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE) {
    return call.Refuse("this filter is");
  }
  auto registration = std::make_shared<NotificationRegistration>();
  registration->filter = *pFilter;
  registration->callback = pCallback;
  registration->context = pContext;
  registration->handle = static_cast<HCMNOTIFICATION>(TheMachine().handles.Open(registration));
  *pNotifyContext = registration->handle;
  TheMachine().notifications.Register(registration);
  return call.Return(CR_SUCCESS);
}
