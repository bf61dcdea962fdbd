// Listing processes and naming their modules. Sizes of lists count bytes, of names characters.
#pragma once

#include "windef.h"

extern "C" {
BOOL WINAPI K32EnumProcesses(DWORD* lpidProcess, DWORD cb, LPDWORD lpcbNeeded);
BOOL WINAPI K32EnumProcessModules(HANDLE hProcess, HMODULE* lphModule, DWORD cb,
                                  LPDWORD lpcbNeeded);
DWORD WINAPI K32GetModuleBaseNameW(HANDLE hProcess, HMODULE hModule, LPWSTR lpBaseName,
                                   DWORD nSize);
}
