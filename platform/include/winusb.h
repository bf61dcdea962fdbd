// WinUSB: descriptors, alternate settings and control transfers of an opened device file.
//
// Lengths count bytes. A handle from WinUsb_Initialize is freed before the device file is closed.
#pragma once

#include "usb.h"
#include "windef.h"

using WINUSB_INTERFACE_HANDLE = PVOID;
using PWINUSB_INTERFACE_HANDLE = WINUSB_INTERFACE_HANDLE*;
static_assert(sizeof(WINUSB_INTERFACE_HANDLE) == 8);

#pragma pack(push, 1)
struct WINUSB_SETUP_PACKET {
  UCHAR RequestType;
  UCHAR Request;
  USHORT Value;
  USHORT Index;
  USHORT Length;
};
#pragma pack(pop)
static_assert(sizeof(WINUSB_SETUP_PACKET) == 8);

extern "C" {
BOOL WINAPI WinUsb_Initialize(HANDLE DeviceHandle, PWINUSB_INTERFACE_HANDLE InterfaceHandle);
BOOL WINAPI WinUsb_Free(WINUSB_INTERFACE_HANDLE InterfaceHandle);
BOOL WINAPI WinUsb_GetDescriptor(WINUSB_INTERFACE_HANDLE InterfaceHandle, UCHAR DescriptorType,
                                 UCHAR Index, USHORT LanguageID, PUCHAR Buffer, ULONG BufferLength,
                                 PULONG LengthTransferred);
BOOL WINAPI WinUsb_QueryInterfaceSettings(WINUSB_INTERFACE_HANDLE InterfaceHandle,
                                          UCHAR AlternateInterfaceNumber,
                                          PUSB_INTERFACE_DESCRIPTOR UsbAltInterfaceDescriptor);
BOOL WINAPI WinUsb_SetCurrentAlternateSetting(WINUSB_INTERFACE_HANDLE InterfaceHandle,
                                              UCHAR SettingNumber);
BOOL WINAPI WinUsb_ControlTransfer(WINUSB_INTERFACE_HANDLE InterfaceHandle,
                                   WINUSB_SETUP_PACKET SetupPacket, PUCHAR Buffer,
                                   ULONG BufferLength, PULONG LengthTransferred,
                                   LPOVERLAPPED Overlapped);
}
