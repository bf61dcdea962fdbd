// The USB identity of the supported keyboard in normal mode, fixed when the service is built.
//
// The build's cache variables of the same names set the two macros; the values below stand in for
// them where a file is compiled by itself.
#pragma once

#include "common/types.h"

#ifndef VANTREL_KEYBOARD_VENDOR_ID
#define VANTREL_KEYBOARD_VENDOR_ID 0x1209
#endif
#ifndef VANTREL_KEYBOARD_PRODUCT_ID
#define VANTREL_KEYBOARD_PRODUCT_ID 0x0001
#endif

static_assert(VANTREL_KEYBOARD_VENDOR_ID >= 0 && VANTREL_KEYBOARD_VENDOR_ID <= 0xFFFF);
static_assert(VANTREL_KEYBOARD_PRODUCT_ID >= 0 && VANTREL_KEYBOARD_PRODUCT_ID <= 0xFFFF);

inline constexpr u16 KeyboardVendorId = VANTREL_KEYBOARD_VENDOR_ID;
inline constexpr u16 KeyboardProductId = VANTREL_KEYBOARD_PRODUCT_ID;
