// Environment blocks for a user's processes.
#pragma once

#include "windef.h"

extern "C" {
BOOL WINAPI CreateEnvironmentBlock(LPVOID* lpEnvironment, HANDLE hToken, BOOL bInherit);
BOOL WINAPI DestroyEnvironmentBlock(LPVOID lpEnvironment);
}
