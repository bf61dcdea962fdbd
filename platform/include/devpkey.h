// The device property keys that the service reads. See <initguid.h> for where they are defined.
#include "devpropdef.h"

// The instance id of the device behind an interface; a string.
DEFINE_DEVPROPKEY(DEVPKEY_Device_InstanceId, 0x78C34FC8, 0x104A, 0x4ACA, 0x9E, 0xA4, 0x52, 0x4D,
                  0x52, 0x99, 0x6E, 0x57, 256);
