// The cross toolchain's <cfgmgr32.h> plus the two calls that it knows the types of but does not
// declare. Both are exported by its import library, and by cfgmgr32.dll from Windows 8 on.
#pragma once

#include_next <cfgmgr32.h>

#ifdef __cplusplus
extern "C" {
#endif

CMAPI CONFIGRET WINAPI CM_Register_Notification(PCM_NOTIFY_FILTER pFilter, PVOID pContext,
                                                PCM_NOTIFY_CALLBACK pCallback,
                                                PHCMNOTIFICATION pNotifyContext);

CMAPI CONFIGRET WINAPI CM_Get_Device_Interface_PropertyW(LPCWSTR pszDeviceInterface,
                                                         CONST DEVPROPKEY* PropertyKey,
                                                         DEVPROPTYPE* PropertyType,
                                                         PBYTE PropertyBuffer,
                                                         PULONG PropertyBufferSize, ULONG ulFlags);

#ifdef __cplusplus
}
#endif
