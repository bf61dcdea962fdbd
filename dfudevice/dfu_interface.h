// The device interface class of a keyboard that has restarted in DFU mode.
//
// The service watches this class for arrivals and removals, and the listing of DFU devices asks for
// its interfaces.
#pragma once

#include <windows.h>

// {5CBC7CBE-C056-45BD-B422-0049D94D11E9}
inline constexpr GUID DfuInterfaceGuid = {
    0x5CBC7CBE, 0xC056, 0x45BD, {0xB4, 0x22, 0x00, 0x49, 0xD9, 0x4D, 0x11, 0xE9}};
