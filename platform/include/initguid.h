// Included before <devpkey.h>, makes this source file define the keys that the header declares.
#define INITGUID
