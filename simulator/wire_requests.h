// The requests on the wire in numbers: USB's own, HID's one, and those of USB Device Firmware
// Upgrade 1.1 with the DfuSe commands.
//
// The service has such numbers of its own. These are written down apart from it, so that a keyboard
// does not understand a service that has one of them wrong.
#pragma once

#include <windows.h>
#include <winusb.h>

#include "common/types.h"
#include "platform/machine/device_backend.h"

namespace simulator {

// bmRequestType: bit 7 is the direction, bits 5 and 6 the kind, the rest the recipient.
inline constexpr u8 DirectionToHost = 0x80;
inline constexpr u8 TypeMask = 0x60;
inline constexpr u8 ClassType = 0x20;

// The three that the service sends.
inline constexpr u8 HostToInterface = 0x21;
inline constexpr u8 InterfaceToHost = 0xA1;
inline constexpr u8 StandardToHost = 0x80;

// Standard requests, and the one that carries an output report.
inline constexpr u8 GetDescriptorRequest = 6;
inline constexpr u8 SetInterfaceRequest = 11;
inline constexpr u8 HidSetReportRequest = 9;

// bRequest of the class DFU; there is no upload, so that one is refused.
enum DfuRequest : u8 {
  DfuDetach = 0,
  DfuDnload = 1,
  DfuUpload = 2,
  DfuGetStatus = 3,
  DfuClrStatus = 4,
  DfuGetState = 5,
  DfuAbort = 6,
};

// The first byte of a block 0; the address follows, its lowest byte first.
inline constexpr u8 SetAddressCommand = 0x21;
inline constexpr u8 EraseCommand = 0x41;
inline constexpr std::size_t CommandBytes = 5;

// Blocks of firmware count from here; what lies below is for commands.
inline constexpr u16 FirstDataBlock = 2;

// The answer to GETSTATUS: bStatus, bwPollTimeout in three bytes with the lowest first, bState,
// iString.
inline constexpr std::size_t StatusReplyBytes = 6;

// The states that the virtual keyboard can be in.
enum DfuState : u8 {
  dfuIDLE = 2,
  dfuDNLOADSYNC = 3,
  dfuDNBUSY = 4,
  dfuDNLOADIDLE = 5,
  dfuMANIFESTSYNC = 6,
  dfuMANIFEST = 7,
  dfuERROR = 10,
};

// The statuses that it tells by itself; a script or a fault may tell any other.
enum DfuStatusCode : u8 {
  dfuOK = 0x00,
  errTARGET = 0x01,
  errWRITE = 0x03,
  errERASE = 0x04,
  errVERIFY = 0x07,
  errADDRESS = 0x08,
  errUNKNOWN = 0x0E,
  errSTALLEDPKT = 0x0F,
};

inline bool IsToHost(const WINUSB_SETUP_PACKET& setup) {
  return (setup.RequestType & DirectionToHost) != 0;
}

// HID requests are of this kind, too: the interface makes the difference.
inline bool IsClassRequest(const WINUSB_SETUP_PACKET& setup) {
  return (setup.RequestType & TypeMask) == ClassType;
}
inline bool IsClassRequest(const WINUSB_SETUP_PACKET& setup, u8 request) {
  return IsClassRequest(setup) && setup.Request == request;
}

// Whether a DNLOAD carries a command with an address rather than firmware.
inline bool IsCommand(const WINUSB_SETUP_PACKET& setup, const platform::Bytes& data) {
  return setup.Value == 0 && data.size() == CommandBytes;
}

// The address in a command.
inline u32 AddressIn(const platform::Bytes& command) {
  return u32{command[1]} | u32{command[2]} << 8 | u32{command[3]} << 16 | u32{command[4]} << 24;
}

// bwPollTimeout of a GETSTATUS reply, in milliseconds.
inline u32 PollTimeoutIn(const platform::Bytes& reply) {
  return reply[1] | u32{reply[2]} << 8 | u32{reply[3]} << 16;
}

// How long after its answer the device asked to be left alone.
inline u32 LeftAloneMs(const WINUSB_SETUP_PACKET& setup, const platform::Bytes& reply) {
  const bool isBusy = setup.RequestType == InterfaceToHost && setup.Request == DfuGetStatus &&
                      reply.size() == StatusReplyBytes && reply[4] == dfuDNBUSY;
  return isBusy ? PollTimeoutIn(reply) : 0;
}

}  // namespace simulator
