// The records that cross to Windows have the sizes here that the simulated machine asserts for its
// own, whatever the processor and whatever toolchain's headers declare them. Generates no code.
#include <windows.h>
#include <winusb.h>

#include <cfgmgr32.h>
#include <hidsdi.h>
#include <usb.h>

#include <climits>
#include <cstddef>

static_assert(CHAR_BIT == 8 && sizeof(void*) == 8);
static_assert(sizeof(WCHAR) == 2 && sizeof(BOOL) == 4 && sizeof(DWORD) == 4 && sizeof(LONG) == 4);
static_assert(sizeof(HANDLE) == 8 && sizeof(WINUSB_INTERFACE_HANDLE) == 8);
static_assert(sizeof(GUID) == 16 && sizeof(FILETIME) == 8 && sizeof(LUID) == 8);

static_assert(sizeof(SERVICE_STATUS) == 28);
static_assert(sizeof(SERVICE_TABLE_ENTRYW) == 16);

static_assert(sizeof(CM_NOTIFY_FILTER) == 416 && offsetof(CM_NOTIFY_FILTER, u) == 16);
static_assert(offsetof(CM_NOTIFY_EVENT_DATA, u) == 8);
static_assert(sizeof(DEVPROPKEY) == 20 && sizeof(DEVPROPTYPE) == 4);

static_assert(sizeof(WINUSB_SETUP_PACKET) == 8);
static_assert(sizeof(USB_DEVICE_DESCRIPTOR) == 18);
static_assert(sizeof(USB_CONFIGURATION_DESCRIPTOR) == 9);
static_assert(sizeof(USB_INTERFACE_DESCRIPTOR) == 9);

static_assert(sizeof(HIDD_ATTRIBUTES) == 12);
static_assert(sizeof(HIDP_CAPS) == 64);

static_assert(sizeof(WIN32_FIND_DATAA) == 320);
static_assert(sizeof(SYSTEM_POWER_STATUS) == 12);
static_assert(sizeof(LUID_AND_ATTRIBUTES) == 12 && sizeof(TOKEN_PRIVILEGES) == 16);
static_assert(sizeof(STARTUPINFOW) == 104 && sizeof(PROCESS_INFORMATION) == 24);
static_assert(sizeof(SECURITY_ATTRIBUTES) == 24);
