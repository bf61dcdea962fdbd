// Keys and types of device properties.
//
// A key is declared by DEFINE_DEVPROPKEY, and defined too where <initguid.h> was included first.
#include "windef.h"

#ifndef VANTREL_DEVPROPDEF_TYPES
#define VANTREL_DEVPROPDEF_TYPES

using DEVPROPTYPE = ULONG;
using DEVPROPID = ULONG;
static_assert(sizeof(DEVPROPTYPE) == 4);

#define DEVPROP_TYPE_EMPTY 0x00000000
#define DEVPROP_TYPE_STRING 0x00000012

struct DEVPROPKEY {
  GUID fmtid;
  DEVPROPID pid;
};
static_assert(sizeof(DEVPROPKEY) == 20);

#endif

#undef DEFINE_DEVPROPKEY
#ifdef INITGUID
#define DEFINE_DEVPROPKEY(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8, pid) \
  EXTERN_C const DEVPROPKEY DECLSPEC_SELECTANY name = {                         \
      {l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}, pid}
#else
#define DEFINE_DEVPROPKEY(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8, pid) \
  EXTERN_C const DEVPROPKEY name
#endif
