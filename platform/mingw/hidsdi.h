// The toolchain's HID calls, which it declares without C linkage.
#pragma once

extern "C" {
#include_next <hidsdi.h>
}
