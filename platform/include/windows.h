// Windows' main header for hosts that have none of their own.
//
// Declares what the service calls and no more; platform/winapi holds the definitions.
#pragma once

#include "winbase.h"
#include "windef.h"
#include "winerror.h"
#include "winreg.h"
#include "winsvc.h"
