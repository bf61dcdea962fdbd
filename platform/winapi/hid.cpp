// The HID calls. On the wire they are control transfers, and the transfer log shows them as such.
#include <hidsdi.h>
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/winapi/device_handles.h"

using platform::AttachedInterface;
using platform::Bytes;
using platform::Call;
using platform::DeviceInterface;
using platform::GetDeviceFile;
using platform::HandleKind;
using platform::HidCollection;
using platform::KernelObject;
using platform::LastErrorCall;
using platform::PlatformCall;
using platform::SureCall;
using platform::TheMachine;
using platform::UsbReply;
using platform::UsbResult;

namespace {

// Longer buffers for a string are refused by the drivers below.
constexpr ULONG LongestStringBytes = 4093;

// Windows hands out an opaque block. Here it is a handle, so that one that is not freed shows.
class PreparsedObject : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::PreparsedData;

  HidCollection collection;
};

// The HID collection behind a file; null with the last error set.
std::shared_ptr<AttachedInterface> GetCollection(HANDLE handle, const PlatformCall& call) {
  const auto file = GetDeviceFile(handle, call);
  if (file == nullptr) {
    return nullptr;
  }
  if (file->target()->details().hid == nullptr) {
    SetLastError(ERROR_INVALID_FUNCTION);
    return nullptr;
  }
  return file->target();
}

// The same for the calls that only ask the driver: it answers while the device is there.
std::shared_ptr<AttachedInterface> GetPresentCollection(HANDLE handle, const PlatformCall& call) {
  auto target = GetCollection(handle, call);
  if (target != nullptr && target->isGone()) {
    SetLastError(ERROR_DEVICE_NOT_CONNECTED);
    return nullptr;
  }
  return target;
}

// What the class driver makes of a transfer that failed.
BOOLEAN Finish(UsbResult result, const LastErrorCall<BOOLEAN>& call) {
  switch (result) {
    case UsbResult::Done:
      return TRUE;
    case UsbResult::Stalled:
      return call.Fail(ERROR_GEN_FAILURE);
    case UsbResult::TimedOut:
      return call.Fail(ERROR_SEM_TIMEOUT);
    default:
      return call.Fail(ERROR_DEVICE_NOT_CONNECTED);
  }
}

WINUSB_SETUP_PACKET MakeSetup(UCHAR requestType, UCHAR request, unsigned value, std::size_t bytes) {
  return {requestType, request, static_cast<USHORT>(value), 0, static_cast<USHORT>(bytes)};
}

}  // namespace

void NTAPI HidD_GetHidGuid(LPGUID HidGuid) {
  *HidGuid = platform::HidInterfaceGuid;
}

// The caller fills in Size beforehand; a wrong one is refused by some versions of Windows only.
BOOLEAN NTAPI HidD_GetAttributes(HANDLE HidDeviceObject, PHIDD_ATTRIBUTES Attributes) {
  const LastErrorCall<BOOLEAN> call(Call::HidD_GetAttributes);
  call.Note(HidDeviceObject, Attributes);
  if (call.fails()) {
    return call.Fail();
  }
  const auto target = GetPresentCollection(HidDeviceObject, call);
  if (target == nullptr) {
    return call.Fail(GetLastError());
  }
  if (Attributes->Size != sizeof(HIDD_ATTRIBUTES)) {
    call.AddFault("Size is not that of the record");
  }
  const HidCollection& collection = target->details().collection;
  *Attributes = {sizeof(HIDD_ATTRIBUTES), collection.vendorId, collection.productId,
                 collection.versionNumber};
  return TRUE;
}

BOOLEAN NTAPI HidD_GetPreparsedData(HANDLE HidDeviceObject, PHIDP_PREPARSED_DATA* PreparsedData) {
  const LastErrorCall<BOOLEAN> call(Call::HidD_GetPreparsedData);
  call.Note(HidDeviceObject, PreparsedData);
  if (call.fails()) {
    return call.Fail();
  }
  const auto target = GetPresentCollection(HidDeviceObject, call);
  if (target == nullptr) {
    return call.Fail(GetLastError());
  }
  auto preparsed = std::make_shared<PreparsedObject>();
  preparsed->collection = target->details().collection;
  *PreparsedData = static_cast<PHIDP_PREPARSED_DATA>(TheMachine().handles.Open(preparsed));
  return TRUE;
}

BOOLEAN NTAPI HidD_FreePreparsedData(PHIDP_PREPARSED_DATA PreparsedData) {
  const SureCall call(Call::HidD_FreePreparsedData);
  call.Note(PreparsedData);
  const bool freed = call.Close<PreparsedObject>(PreparsedData);
  return freed ? TRUE : static_cast<BOOLEAN>(call.Fail(ERROR_INVALID_PARAMETER));
}

// Only a parser: it asks no device and sets no last error.
NTSTATUS NTAPI HidP_GetCaps(PHIDP_PREPARSED_DATA PreparsedData, PHIDP_CAPS Capabilities) {
  const PlatformCall call(Call::HidP_GetCaps);
  call.Note(PreparsedData, Capabilities);
  if (call.fails()) {
    return HIDP_STATUS_INVALID_PREPARSED_DATA;
  }
  const auto preparsed = call.Get<PreparsedObject>(PreparsedData);
  if (preparsed == nullptr) {
    return HIDP_STATUS_INVALID_PREPARSED_DATA;
  }
  *Capabilities = {};
  Capabilities->UsagePage = preparsed->collection.usagePage;
  Capabilities->Usage = preparsed->collection.usage;
  Capabilities->InputReportByteLength = preparsed->collection.inputReportBytes;
  Capabilities->OutputReportByteLength = preparsed->collection.outputReportBytes;
  Capabilities->FeatureReportByteLength = preparsed->collection.featureReportBytes;
  return HIDP_STATUS_SUCCESS;
}

// The string is read from the device every time, which takes time and can fail.
BOOLEAN NTAPI HidD_GetProductString(HANDLE HidDeviceObject, PVOID Buffer, ULONG BufferLength) {
  const LastErrorCall<BOOLEAN> call(Call::HidD_GetProductString);
  call.Note(HidDeviceObject, Buffer, BufferLength);
  if (call.fails()) {
    return call.Fail();
  }
  const auto target = GetCollection(HidDeviceObject, call);
  if (target == nullptr) {
    return call.Fail(GetLastError());
  }
  if (BufferLength > LongestStringBytes) {
    return call.Fail(ERROR_INVALID_PARAMETER);
  }
  std::u16string text;
  Bytes data;
  const UsbResult result = TheMachine().devices.Carry(
      *target, MakeSetup(0x80, 6, 0x0302, 255), data, [&](const Bytes&) -> UsbReply {
        if (!target->details().hid->ReadProductString(text)) {
          return {UsbResult::Stalled, {}};
        }
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
        return {UsbResult::Done, Bytes(bytes, bytes + text.size() * sizeof(WCHAR))};
      });
  if (result != UsbResult::Done) {
    return Finish(result, call);
  }
  // A buffer that does not hold the string and its NUL gets nothing of it.
  if (BufferLength < (text.size() + 1) * sizeof(WCHAR)) {
    return call.Fail(ERROR_INVALID_USER_BUFFER);
  }
  std::memcpy(Buffer, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
  return TRUE;
}

// Goes over the control pipe. What the buffer holds beyond the report's length is not sent.
BOOLEAN NTAPI HidD_SetOutputReport(HANDLE HidDeviceObject, PVOID ReportBuffer,
                                   ULONG ReportBufferLength) {
  const LastErrorCall<BOOLEAN> call(Call::HidD_SetOutputReport);
  call.Note(HidDeviceObject, ReportBuffer, ReportBufferLength);
  if (call.fails()) {
    return call.Fail();
  }
  const auto target = GetCollection(HidDeviceObject, call);
  if (target == nullptr) {
    return call.Fail(GetLastError());
  }
  const USHORT reportBytes = target->details().collection.outputReportBytes;
  if (reportBytes == 0 || ReportBuffer == nullptr) {
    return call.Fail(ERROR_INVALID_PARAMETER);
  }
  if (ReportBufferLength < reportBytes) {
    return call.Fail(ERROR_INVALID_USER_BUFFER);
  }
  const auto* const bytes = static_cast<const std::uint8_t*>(ReportBuffer);
  Bytes data(bytes, bytes + reportBytes);
  const UsbResult result = TheMachine().devices.Carry(
      *target, MakeSetup(0x21, 9, 0x0200u | data[0], reportBytes), data,
      [&](const Bytes& report) -> UsbReply {
        const bool taken = target->details().hid->TakeOutputReport(report);
        return {taken ? UsbResult::Done : UsbResult::Stalled, {}};
      });
  return Finish(result, call);
}
