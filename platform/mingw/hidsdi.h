// The toolchain's HID calls, which it declares without C linkage and without the types they need.
#pragma once

#include <windows.h>

extern "C" {
#include_next <hidsdi.h>
}
