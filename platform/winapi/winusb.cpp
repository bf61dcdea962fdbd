// The WinUSB calls. Descriptor reads and alternate settings are control transfers like the others.
#include <windows.h>
#include <winusb.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "platform/winapi/device_handles.h"

using platform::AttachedInterface;
using platform::Bytes;
using platform::Call;
using platform::DeviceFile;
using platform::GetDeviceFile;
using platform::HandleKind;
using platform::KernelObject;
using platform::LastErrorCall;
using platform::TheMachine;
using platform::UsbResult;

namespace {

// The most that one control transfer carries.
constexpr ULONG MostTransferBytes = 4096;

constexpr UCHAR DirectionToHost = 0x80;
constexpr UCHAR GetDescriptorRequest = 6;
constexpr UCHAR SetInterfaceRequest = 11;

class WinUsbObject : public KernelObject {
 public:
  static constexpr HandleKind Kind = HandleKind::WinUsb;

  std::weak_ptr<DeviceFile> file;  // empty once the file has been closed
  std::shared_ptr<AttachedInterface> target;
  std::atomic<UCHAR> alternateSetting = 0;
};

class WinUsbCall : public LastErrorCall<BOOL> {
 public:
  explicit WinUsbCall(Call call) : LastErrorCall(call) {}

  // Null when the handle is none or its file has been closed under it.
  std::shared_ptr<WinUsbObject> GetWinUsb(WINUSB_INTERFACE_HANDLE handle) const {
    auto winUsb = Get<WinUsbObject>(handle);
    if (winUsb != nullptr && winUsb->file.expired()) {
      AddFault("the device file is closed");
      return nullptr;
    }
    return winUsb;
  }
};

// A stall and a device that vanishes in the midst look the same to the caller.
DWORD ErrorOf(UsbResult result) {
  switch (result) {
    case UsbResult::Done:
      return ERROR_SUCCESS;
    case UsbResult::TimedOut:
      return ERROR_SEM_TIMEOUT;
    case UsbResult::Absent:
      return ERROR_BAD_COMMAND;
    default:
      return ERROR_GEN_FAILURE;
  }
}

// The last error is set after the transfer, since other calls of the thread may run on the way.
BOOL Carry(const WinUsbObject& winUsb, const WINUSB_SETUP_PACKET& setup, Bytes& data) {
  const UsbResult result =
      TheMachine().devices.Carry(*winUsb.target, setup, data, [&](const Bytes& toDevice) {
        return winUsb.target->details().usb->Transfer(setup, toDevice);
      });
  if (result != UsbResult::Done) {
    SetLastError(ErrorOf(result));
  }
  return result == UsbResult::Done;
}

// The driver remembers what it selected, for the end.
BOOL SelectSetting(WinUsbObject& winUsb, UCHAR setting) {
  Bytes none;
  if (!Carry(winUsb, {0x01, SetInterfaceRequest, setting, 0, 0}, none)) {
    return FALSE;
  }
  winUsb.alternateSetting = setting;
  return TRUE;
}

}  // namespace

// The driver works with overlapped files only, and says so in an error that leads nowhere: hence
// the fault.
BOOL WINAPI WinUsb_Initialize(HANDLE DeviceHandle, PWINUSB_INTERFACE_HANDLE InterfaceHandle) {
  const WinUsbCall call(Call::WinUsb_Initialize);
  call.Note(DeviceHandle, InterfaceHandle);
  if (call.fails()) {
    return call.Fail();
  }
  const auto file = GetDeviceFile(DeviceHandle, call);
  if (file == nullptr) {
    return call.Fail(GetLastError());
  }
  if (file->target()->details().usb == nullptr) {
    return call.Fail(ERROR_INVALID_FUNCTION);
  }
  if ((file->mode().flags & FILE_FLAG_OVERLAPPED) == 0) {
    call.AddFault("the file was opened without FILE_FLAG_OVERLAPPED");
    return call.Fail(ERROR_INVALID_HANDLE);
  }
  if (file->target()->isGone()) {
    return call.Fail(ERROR_BAD_COMMAND);
  }
  if (file->inWinUsb.exchange(true)) {
    return call.Refuse("a second use of one file is");
  }
  auto winUsb = std::make_shared<WinUsbObject>();
  winUsb->file = file;
  winUsb->target = file->target();
  *InterfaceHandle = TheMachine().handles.Open(winUsb);
  return TRUE;
}

// The order matters: a file closed before this leaves the driver a handle to nothing.
BOOL WINAPI WinUsb_Free(WINUSB_INTERFACE_HANDLE InterfaceHandle) {
  const WinUsbCall call(Call::WinUsb_Free);
  call.Note(InterfaceHandle);
  if (call.fails()) {
    return call.Fail();
  }
  const auto winUsb = call.Get<WinUsbObject>(InterfaceHandle);
  if (winUsb == nullptr || !call.Close<WinUsbObject>(InterfaceHandle)) {
    return call.Fail(ERROR_INVALID_HANDLE);
  }
  if (const auto file = winUsb->file.lock()) {
    // The driver leaves the interface as it found it.
    if (winUsb->alternateSetting != 0 && !winUsb->target->isGone()) {
      SelectSetting(*winUsb, 0);
    }
    file->inWinUsb = false;
  }
  return TRUE;
}

// A descriptor longer than the buffer comes cut, and that is no error.
BOOL WINAPI WinUsb_GetDescriptor(WINUSB_INTERFACE_HANDLE InterfaceHandle, UCHAR DescriptorType,
                                 UCHAR Index, USHORT LanguageID, PUCHAR Buffer, ULONG BufferLength,
                                 PULONG LengthTransferred) {
  const WinUsbCall call(Call::WinUsb_GetDescriptor);
  call.Note(InterfaceHandle, DescriptorType, Index, LanguageID, Buffer, BufferLength,
            LengthTransferred);
  if (call.fails()) {
    return call.Fail();
  }
  const auto winUsb = call.GetWinUsb(InterfaceHandle);
  if (winUsb == nullptr) {
    return call.Fail(ERROR_INVALID_HANDLE);
  }
  if (LengthTransferred == nullptr || Buffer == nullptr || BufferLength > MostTransferBytes) {
    return call.Fail(ERROR_INVALID_PARAMETER);
  }
  *LengthTransferred = 0;
  const auto value = static_cast<USHORT>((DescriptorType << 8) | Index);
  Bytes answer;
  if (!Carry(*winUsb,
             {DirectionToHost, GetDescriptorRequest, value, LanguageID,
              static_cast<USHORT>(BufferLength)},
             answer)) {
    return call.Fail(GetLastError());
  }
  std::copy(answer.begin(), answer.end(), Buffer);
  *LengthTransferred = static_cast<ULONG>(answer.size());
  return TRUE;
}

// Answered by the driver, from the configuration that it read when the device was attached.
BOOL WINAPI WinUsb_QueryInterfaceSettings(WINUSB_INTERFACE_HANDLE InterfaceHandle,
                                          UCHAR AlternateInterfaceNumber,
                                          PUSB_INTERFACE_DESCRIPTOR UsbAltInterfaceDescriptor) {
  const WinUsbCall call(Call::WinUsb_QueryInterfaceSettings);
  call.Note(InterfaceHandle, AlternateInterfaceNumber, UsbAltInterfaceDescriptor);
  if (call.fails()) {
    return call.Fail();
  }
  const auto winUsb = call.GetWinUsb(InterfaceHandle);
  if (winUsb == nullptr) {
    return call.Fail(ERROR_INVALID_HANDLE);
  }
  USB_INTERFACE_DESCRIPTOR settings{};
  if (!winUsb->target->details().usb->QueryInterfaceSettings(AlternateInterfaceNumber, settings)) {
    return call.Fail(ERROR_NO_MORE_ITEMS);
  }
  *UsbAltInterfaceDescriptor = settings;
  return TRUE;
}

BOOL WINAPI WinUsb_SetCurrentAlternateSetting(WINUSB_INTERFACE_HANDLE InterfaceHandle,
                                              UCHAR SettingNumber) {
  const WinUsbCall call(Call::WinUsb_SetCurrentAlternateSetting);
  call.Note(InterfaceHandle, SettingNumber);
  if (call.fails()) {
    return call.Fail();
  }
  const auto winUsb = call.GetWinUsb(InterfaceHandle);
  return winUsb == nullptr ? call.Fail(ERROR_INVALID_HANDLE)
                           : SelectSetting(*winUsb, SettingNumber);
}

BOOL WINAPI WinUsb_ControlTransfer(WINUSB_INTERFACE_HANDLE InterfaceHandle,
                                   WINUSB_SETUP_PACKET SetupPacket, PUCHAR Buffer,
                                   ULONG BufferLength, PULONG LengthTransferred,
                                   LPOVERLAPPED Overlapped) {
  const WinUsbCall call(Call::WinUsb_ControlTransfer);
  call.Note(InterfaceHandle, SetupPacket, Buffer, BufferLength, LengthTransferred, Overlapped);
  if (call.fails()) {
    return call.Fail();
  }
  const auto winUsb = call.GetWinUsb(InterfaceHandle);
  if (winUsb == nullptr) {
    return call.Fail(ERROR_INVALID_HANDLE);
  }
  if (Overlapped != nullptr) {
    return call.Refuse("an overlapped transfer is");
  }
  // Only a call without a buffer may do without the count.
  if (LengthTransferred == nullptr && BufferLength != 0) {
    call.AddFault("nowhere to put LengthTransferred");
    return call.Fail(ERROR_INVALID_PARAMETER);
  }
  if (SetupPacket.Length > MostTransferBytes || BufferLength > MostTransferBytes) {
    return call.Fail(ERROR_INVALID_PARAMETER);
  }
  if (SetupPacket.Length > BufferLength || (Buffer == nullptr && SetupPacket.Length != 0)) {
    call.AddFault("wLength goes beyond the buffer");
    return call.Fail(ERROR_INVALID_PARAMETER);
  }

  // The direction stands in the request itself. A caller who asked for no count still gets the
  // data.
  const bool toHost = (SetupPacket.RequestType & DirectionToHost) != 0;
  Bytes data;
  if (!toHost && SetupPacket.Length != 0) {
    data.assign(Buffer, Buffer + SetupPacket.Length);
  }
  if (LengthTransferred != nullptr) {
    *LengthTransferred = 0;
  }
  if (!Carry(*winUsb, SetupPacket, data)) {
    return call.Fail(GetLastError());
  }
  if (toHost) {
    std::copy(data.begin(), data.end(), Buffer);
  }
  if (LengthTransferred != nullptr) {
    *LengthTransferred = static_cast<ULONG>(data.size());
  }
  return TRUE;
}
