// The Configuration Manager: device interface lists, device nodes and notifications.
//
// Lengths of interface lists count characters, sizes of properties count bytes. Notifications are
// delivered on threads of the system's own.
#pragma once

#include "devpropdef.h"
#include "windef.h"

#define MAX_DEVICE_ID_LEN 200

#define CM_GET_DEVICE_INTERFACE_LIST_PRESENT 0x00000000
#define CM_GET_DEVICE_INTERFACE_LIST_ALL_DEVICES 0x00000001
#define CM_LOCATE_DEVNODE_PHANTOM 0x00000001
#define CM_DRP_DEVICEDESC 0x00000001

#define CR_SUCCESS 0x00000000
#define CR_OUT_OF_MEMORY 0x00000002
#define CR_INVALID_POINTER 0x00000003
#define CR_INVALID_DEVNODE 0x00000005
#define CR_NO_SUCH_DEVNODE 0x0000000D
#define CR_FAILURE 0x00000013
#define CR_BUFFER_SMALL 0x0000001A
#define CR_INVALID_DATA 0x0000001F
#define CR_NO_SUCH_VALUE 0x00000025
#define CR_CALL_NOT_IMPLEMENTED 0x00000034
#define CR_NO_SUCH_DEVICE_INTERFACE 0x00000037

using CONFIGRET = DWORD;
using DEVINST = DWORD;
using PDEVINST = DEVINST*;
using DEVINSTID_W = WCHAR*;
static_assert(sizeof(CONFIGRET) == 4 && sizeof(DEVINST) == 4);

DECLARE_HANDLE(HCMNOTIFICATION);
using PHCMNOTIFICATION = HCMNOTIFICATION*;

enum CM_NOTIFY_FILTER_TYPE {
  CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE = 0,
  CM_NOTIFY_FILTER_TYPE_DEVICEHANDLE,
  CM_NOTIFY_FILTER_TYPE_DEVICEINSTANCE,
  CM_NOTIFY_FILTER_TYPE_MAX
};

enum CM_NOTIFY_ACTION {
  CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL = 0,
  CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL,
  CM_NOTIFY_ACTION_DEVICEQUERYREMOVE,
  CM_NOTIFY_ACTION_DEVICEQUERYREMOVEFAILED,
  CM_NOTIFY_ACTION_DEVICEREMOVEPENDING,
  CM_NOTIFY_ACTION_DEVICEREMOVECOMPLETE,
  CM_NOTIFY_ACTION_DEVICECUSTOMEVENT,
  CM_NOTIFY_ACTION_DEVICEINSTANCEENUMERATED,
  CM_NOTIFY_ACTION_DEVICEINSTANCESTARTED,
  CM_NOTIFY_ACTION_DEVICEINSTANCEREMOVED,
  CM_NOTIFY_ACTION_MAX
};
static_assert(sizeof(CM_NOTIFY_FILTER_TYPE) == 4 && sizeof(CM_NOTIFY_ACTION) == 4);

struct CM_NOTIFY_FILTER {
  DWORD cbSize;
  DWORD Flags;
  CM_NOTIFY_FILTER_TYPE FilterType;
  DWORD Reserved;
  union {
    struct {
      GUID ClassGuid;
    } DeviceInterface;
    struct {
      HANDLE hTarget;
    } DeviceHandle;
    struct {
      WCHAR InstanceId[MAX_DEVICE_ID_LEN];
    } DeviceInstance;
  } u;
};
using PCM_NOTIFY_FILTER = CM_NOTIFY_FILTER*;
static_assert(sizeof(CM_NOTIFY_FILTER) == 416 && offsetof(CM_NOTIFY_FILTER, u) == 16);

struct CM_NOTIFY_EVENT_DATA {
  CM_NOTIFY_FILTER_TYPE FilterType;
  DWORD Reserved;
  union {
    struct {
      GUID ClassGuid;
      WCHAR SymbolicLink[ANYSIZE_ARRAY];
    } DeviceInterface;
    struct {
      GUID EventGuid;
      LONG NameOffset;
      DWORD DataSize;
      BYTE Data[ANYSIZE_ARRAY];
    } DeviceHandle;
    struct {
      WCHAR InstanceId[ANYSIZE_ARRAY];
    } DeviceInstance;
  } u;
};
using PCM_NOTIFY_EVENT_DATA = CM_NOTIFY_EVENT_DATA*;
static_assert(sizeof(CM_NOTIFY_EVENT_DATA) == 36 && offsetof(CM_NOTIFY_EVENT_DATA, u) == 8);

using PCM_NOTIFY_CALLBACK = DWORD(CALLBACK*)(HCMNOTIFICATION hNotify, PVOID Context,
                                             CM_NOTIFY_ACTION Action,
                                             PCM_NOTIFY_EVENT_DATA EventData, DWORD EventDataSize);

extern "C" {
CONFIGRET WINAPI CM_Get_Device_Interface_List_SizeW(PULONG pulLen, LPGUID InterfaceClassGuid,
                                                    DEVINSTID_W pDeviceID, ULONG ulFlags);
CONFIGRET WINAPI CM_Get_Device_Interface_ListW(LPGUID InterfaceClassGuid, DEVINSTID_W pDeviceID,
                                               PWCHAR Buffer, ULONG BufferLen, ULONG ulFlags);
CONFIGRET WINAPI CM_Get_Device_Interface_PropertyW(LPCWSTR pszDeviceInterface,
                                                   const DEVPROPKEY* PropertyKey,
                                                   DEVPROPTYPE* PropertyType, PBYTE PropertyBuffer,
                                                   PULONG PropertyBufferSize, ULONG ulFlags);
CONFIGRET WINAPI CM_Locate_DevNodeW(PDEVINST pdnDevInst, DEVINSTID_W pDeviceID, ULONG ulFlags);
CONFIGRET WINAPI CM_Get_DevNode_Registry_PropertyW(DEVINST dnDevInst, ULONG ulProperty,
                                                   PULONG pulRegDataType, PVOID Buffer,
                                                   PULONG pulLength, ULONG ulFlags);
CONFIGRET WINAPI CM_Register_Notification(PCM_NOTIFY_FILTER pFilter, PVOID pContext,
                                          PCM_NOTIFY_CALLBACK pCallback,
                                          PHCMNOTIFICATION pNotifyContext);
}
