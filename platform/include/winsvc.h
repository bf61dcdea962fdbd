// The service control manager as a service in a process of its own meets it. Included through
// <windows.h>.
#pragma once

#include "windef.h"

DECLARE_HANDLE(SERVICE_STATUS_HANDLE);

#define SERVICE_WIN32_OWN_PROCESS 0x00000010

#define SERVICE_STOPPED 0x00000001
#define SERVICE_START_PENDING 0x00000002
#define SERVICE_STOP_PENDING 0x00000003
#define SERVICE_RUNNING 0x00000004
#define SERVICE_CONTINUE_PENDING 0x00000005
#define SERVICE_PAUSE_PENDING 0x00000006
#define SERVICE_PAUSED 0x00000007

#define SERVICE_CONTROL_STOP 0x00000001
#define SERVICE_CONTROL_PAUSE 0x00000002
#define SERVICE_CONTROL_CONTINUE 0x00000003

struct SERVICE_STATUS {
  DWORD dwServiceType;
  DWORD dwCurrentState;
  DWORD dwControlsAccepted;
  DWORD dwWin32ExitCode;
  DWORD dwServiceSpecificExitCode;
  DWORD dwCheckPoint;
  DWORD dwWaitHint;
};
using LPSERVICE_STATUS = SERVICE_STATUS*;
static_assert(sizeof(SERVICE_STATUS) == 28);

using LPSERVICE_MAIN_FUNCTIONW = VOID(WINAPI*)(DWORD dwNumServicesArgs,
                                               LPWSTR* lpServiceArgVectors);
using LPHANDLER_FUNCTION_EX = DWORD(WINAPI*)(DWORD dwControl, DWORD dwEventType, LPVOID lpEventData,
                                             LPVOID lpContext);

struct SERVICE_TABLE_ENTRYW {
  LPWSTR lpServiceName;
  LPSERVICE_MAIN_FUNCTIONW lpServiceProc;
};
static_assert(sizeof(SERVICE_TABLE_ENTRYW) == 16);

extern "C" {
BOOL WINAPI StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* lpServiceStartTable);
SERVICE_STATUS_HANDLE WINAPI RegisterServiceCtrlHandlerExW(LPCWSTR lpServiceName,
                                                           LPHANDLER_FUNCTION_EX lpHandlerProc,
                                                           LPVOID lpContext);
BOOL WINAPI SetServiceStatus(SERVICE_STATUS_HANDLE hServiceStatus,
                             LPSERVICE_STATUS lpServiceStatus);
}
