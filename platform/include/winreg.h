// Reading the registry. Included through <windows.h>.
#pragma once

#include "windef.h"

using LSTATUS = LONG;
using REGSAM = DWORD;

// Predefined: open from the start and never closed.
#define HKEY_LOCAL_MACHINE \
  (reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(0x80000002))))

#define KEY_ALL_ACCESS 0x000F003F
#define KEY_WOW64_64KEY 0x0100
#define REG_NONE 0
#define REG_SZ 1
#define REG_BINARY 3
#define RRF_RT_REG_SZ 0x00000002

extern "C" {
LSTATUS WINAPI RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired,
                             PHKEY phkResult);
LSTATUS WINAPI RegCloseKey(HKEY hKey);
LSTATUS WINAPI RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved,
                                LPDWORD lpcSubKeys, LPDWORD lpcbMaxSubKeyLen,
                                LPDWORD lpcbMaxClassLen, LPDWORD lpcValues,
                                LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen,
                                LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime);
LSTATUS WINAPI RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName,
                             LPDWORD lpReserved, LPWSTR lpClass, LPDWORD lpcchClass,
                             PFILETIME lpftLastWriteTime);
LSTATUS WINAPI RegGetValueW(HKEY hkey, LPCWSTR lpSubKey, LPCWSTR lpValue, DWORD dwFlags,
                            LPDWORD pdwType, PVOID pvData, LPDWORD pcbData);
}
