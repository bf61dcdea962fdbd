// What the judges know of the requests on the wire.
#pragma once

#include "simulator/dfu_bootloader.h"

namespace proof {

// Request types.
inline constexpr u8 HostToInterface = 0x21;
inline constexpr u8 InterfaceToHost = 0xA1;
inline constexpr u8 StandardToHost = 0x80;

// Standard requests, and the one that carries an output report.
inline constexpr u8 GetDescriptorRequest = 6;
inline constexpr u8 SetInterfaceRequest = 11;
inline constexpr u8 HidSetReportRequest = 9;

// bStatus, bwPollTimeout in three bytes with the lowest first, bState, iString.
inline constexpr std::size_t StatusReplyBytes = 6;

// bwPollTimeout of a GETSTATUS reply.
inline u32 PollTimeoutIn(const platform::Bytes& reply) {
  return reply[1] | u32{reply[2]} << 8 | u32{reply[3]} << 16;
}

// How long after its answer the device asked to be left alone.
inline u32 LeftAloneMs(const WINUSB_SETUP_PACKET& setup, const platform::Bytes& reply) {
  const bool isBusy = setup.RequestType == InterfaceToHost &&
                      setup.Request == simulator::DfuGetStatus &&
                      reply.size() == StatusReplyBytes && reply[4] == simulator::dfuDNBUSY;
  return isBusy ? PollTimeoutIn(reply) : 0;
}

}  // namespace proof
