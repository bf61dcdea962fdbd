// What stands behind an attached interface: a HID collection or a USB device driven through WinUSB.
//
// The simulator implements the two back-ends. They are called on the thread that makes the platform
// call, with none of the layer's locks held, after the time on the wire has passed; several threads
// may call at once. They must not block: an answer that takes its time says so in delayMs.
#pragma once

#include <hidsdi.h>
#include <winusb.h>

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

using Bytes = std::vector<std::uint8_t>;

// The class of every HID collection, which HidD_GetHidGuid tells.
inline constexpr GUID HidInterfaceGuid = {
    0x4D1E55B2, 0xF16F, 0x11CF, {0x88, 0xCB, 0x00, 0x11, 0x11, 0x00, 0x00, 0x30}};

// What became of a transfer. The families of calls make different errors of it.
enum class UsbResult {
  Done,
  Stalled,   // the device refused the request
  TimedOut,  // it did not answer in time
  Vanished,  // it left while the transfer was under way
  Absent,    // it had left before
};

struct UsbReply {
  UsbResult result = UsbResult::Done;
  Bytes data;                 // the answer, when the data stage goes to the host
  std::uint32_t delayMs = 0;  // how long the device keeps the host waiting for it
};

// What Windows learns from the report descriptor when it starts a collection. The service sees it
// through the preparsed data and the attributes, without a word to the device.
struct HidCollection {
  USAGE usagePage = 0;
  USAGE usage = 0;
  USHORT vendorId = 0;
  USHORT productId = 0;
  USHORT versionNumber = 0;
  USHORT inputReportBytes = 0;  // report lengths count the report id
  USHORT outputReportBytes = 0;
  USHORT featureReportBytes = 0;
};

// A collection of a keyboard in its normal mode. It stays alive while a file of it is open.
class HidBackEnd {
 public:
  virtual ~HidBackEnd() = default;

  // False when the device refuses its string. Without the NUL, which Windows adds. A device may
  // send anything here, also text without end.
  virtual bool ReadProductString(std::u16string& text) = 0;

  // One output report, its id first, as long as the collection says. False when it is refused.
  virtual bool TakeOutputReport(const Bytes& report) = 0;
};

// A device that WinUSB drives: the keyboard in DFU mode.
class UsbBackEnd {
 public:
  virtual ~UsbBackEnd() = default;

  // One control transfer; descriptor reads and the selection of an alternate setting come as the
  // standard requests that they are. data holds setup.Length bytes when they go to the device. An
  // answer that is longer than setup.Length is cut by the caller, as the host's controller would.
  virtual UsbReply Transfer(const WINUSB_SETUP_PACKET& setup, const Bytes& data) = 0;

  // The interface descriptor of the alternate setting with that index, as the host took it from the
  // configuration when the device was attached. False when there is none.
  virtual bool QueryInterfaceSettings(std::uint8_t index, USB_INTERFACE_DESCRIPTOR& settings) = 0;
};

}  // namespace platform
