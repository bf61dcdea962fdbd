// HID collections: attributes, capabilities, the product string and output reports.
//
// Lengths count bytes, those of strings included.
#pragma once

#include "windef.h"

using USAGE = USHORT;
static_assert(sizeof(USAGE) == 2);

struct _HIDP_PREPARSED_DATA;
using PHIDP_PREPARSED_DATA = _HIDP_PREPARSED_DATA*;

#define HIDP_STATUS_SUCCESS (static_cast<NTSTATUS>(0x00110000))
#define HIDP_STATUS_INVALID_PREPARSED_DATA (static_cast<NTSTATUS>(0xC0110001))

struct HIDD_ATTRIBUTES {
  ULONG Size;
  USHORT VendorID;
  USHORT ProductID;
  USHORT VersionNumber;
};
using PHIDD_ATTRIBUTES = HIDD_ATTRIBUTES*;
static_assert(sizeof(HIDD_ATTRIBUTES) == 12);

struct HIDP_CAPS {
  USAGE Usage;
  USAGE UsagePage;
  USHORT InputReportByteLength;
  USHORT OutputReportByteLength;
  USHORT FeatureReportByteLength;
  USHORT Reserved[17];
  USHORT NumberLinkCollectionNodes;
  USHORT NumberInputButtonCaps;
  USHORT NumberInputValueCaps;
  USHORT NumberInputDataIndices;
  USHORT NumberOutputButtonCaps;
  USHORT NumberOutputValueCaps;
  USHORT NumberOutputDataIndices;
  USHORT NumberFeatureButtonCaps;
  USHORT NumberFeatureValueCaps;
  USHORT NumberFeatureDataIndices;
};
using PHIDP_CAPS = HIDP_CAPS*;
static_assert(sizeof(HIDP_CAPS) == 64);

extern "C" {
void NTAPI HidD_GetHidGuid(LPGUID HidGuid);
BOOLEAN NTAPI HidD_GetAttributes(HANDLE HidDeviceObject, PHIDD_ATTRIBUTES Attributes);
BOOLEAN NTAPI HidD_GetPreparsedData(HANDLE HidDeviceObject, PHIDP_PREPARSED_DATA* PreparsedData);
BOOLEAN NTAPI HidD_FreePreparsedData(PHIDP_PREPARSED_DATA PreparsedData);
NTSTATUS NTAPI HidP_GetCaps(PHIDP_PREPARSED_DATA PreparsedData, PHIDP_CAPS Capabilities);
BOOLEAN NTAPI HidD_GetProductString(HANDLE HidDeviceObject, PVOID Buffer, ULONG BufferLength);
BOOLEAN NTAPI HidD_SetOutputReport(HANDLE HidDeviceObject, PVOID ReportBuffer,
                                   ULONG ReportBufferLength);
}
