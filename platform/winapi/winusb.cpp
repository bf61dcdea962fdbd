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
using platform::FailsAtEntry;
using platform::GetDeviceFile;
using platform::HandleKind;
using platform::KernelObject;
using platform::Refuse;
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
  std::weak_ptr<DeviceFile> file;  // empty once the file has been closed
  std::shared_ptr<AttachedInterface> target;
  std::atomic<UCHAR> alternateSetting = 0;
};

// Null, with the last error set, when the handle is none or its file has been closed under it.
std::shared_ptr<WinUsbObject> GetWinUsb(WINUSB_INTERFACE_HANDLE handle, Call call) {
  auto winUsb = TheMachine().handles.Get<WinUsbObject>(handle, HandleKind::WinUsb, NameOf(call));
  if (winUsb != nullptr && winUsb->file.expired()) {
    TheMachine().faults.Add(std::string(NameOf(call)) + ": the device file is closed");
    winUsb = nullptr;
  }
  if (winUsb == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
  }
  return winUsb;
}

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

BOOL SelectSetting(WinUsbObject& winUsb, UCHAR setting) {
  Bytes none;
  if (!Carry(winUsb, {0x01, SetInterfaceRequest, setting, 0, 0}, none)) {
    return FALSE;
  }
  winUsb.alternateSetting = setting;
  return TRUE;
}

BOOL FailWith(DWORD error) {
  SetLastError(error);
  return FALSE;
}

}  // namespace

BOOL WINAPI WinUsb_Initialize(HANDLE DeviceHandle, PWINUSB_INTERFACE_HANDLE InterfaceHandle) {
  if (FailsAtEntry(Call::WinUsb_Initialize)) {
    return FALSE;
  }
  const auto file = GetDeviceFile(DeviceHandle, Call::WinUsb_Initialize);
  if (file == nullptr) {
    return FALSE;
  }
  if (file->target()->details().usb == nullptr) {
    return FailWith(ERROR_INVALID_FUNCTION);
  }
  if ((file->mode().flags & FILE_FLAG_OVERLAPPED) == 0) {
    TheMachine().faults.Add("WinUsb_Initialize: the file was opened without FILE_FLAG_OVERLAPPED");
    return FailWith(ERROR_INVALID_HANDLE);
  }
  if (file->target()->isGone()) {
    return FailWith(ERROR_BAD_COMMAND);
  }
  if (file->inWinUsb.exchange(true)) {
    Refuse(Call::WinUsb_Initialize, "a second use of one file is");
    return FALSE;
  }
  auto winUsb = std::make_shared<WinUsbObject>();
  winUsb->file = file;
  winUsb->target = file->target();
  *InterfaceHandle = TheMachine().handles.Open(HandleKind::WinUsb, winUsb);
  return TRUE;
}

BOOL WINAPI WinUsb_Free(WINUSB_INTERFACE_HANDLE InterfaceHandle) {
  if (FailsAtEntry(Call::WinUsb_Free)) {
    return FALSE;
  }
  const auto winUsb = TheMachine().handles.Get<WinUsbObject>(InterfaceHandle, HandleKind::WinUsb,
                                                             NameOf(Call::WinUsb_Free));
  if (winUsb == nullptr ||
      !TheMachine().handles.Close(InterfaceHandle, HandleKind::WinUsb, NameOf(Call::WinUsb_Free))) {
    return FailWith(ERROR_INVALID_HANDLE);
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

BOOL WINAPI WinUsb_GetDescriptor(WINUSB_INTERFACE_HANDLE InterfaceHandle, UCHAR DescriptorType,
                                 UCHAR Index, USHORT LanguageID, PUCHAR Buffer, ULONG BufferLength,
                                 PULONG LengthTransferred) {
  if (FailsAtEntry(Call::WinUsb_GetDescriptor)) {
    return FALSE;
  }
  const auto winUsb = GetWinUsb(InterfaceHandle, Call::WinUsb_GetDescriptor);
  if (winUsb == nullptr) {
    return FALSE;
  }
  if (LengthTransferred == nullptr || Buffer == nullptr || BufferLength > MostTransferBytes) {
    return FailWith(ERROR_INVALID_PARAMETER);
  }
  *LengthTransferred = 0;
  const auto value = static_cast<USHORT>((DescriptorType << 8) | Index);
  Bytes answer;
  if (!Carry(*winUsb,
             {DirectionToHost, GetDescriptorRequest, value, LanguageID,
              static_cast<USHORT>(BufferLength)},
             answer)) {
    return FALSE;
  }
  std::copy(answer.begin(), answer.end(), Buffer);
  *LengthTransferred = static_cast<ULONG>(answer.size());
  return TRUE;
}

// Answered by the driver, from the configuration that it read when the device was attached.
BOOL WINAPI WinUsb_QueryInterfaceSettings(WINUSB_INTERFACE_HANDLE InterfaceHandle,
                                          UCHAR AlternateInterfaceNumber,
                                          PUSB_INTERFACE_DESCRIPTOR UsbAltInterfaceDescriptor) {
  if (FailsAtEntry(Call::WinUsb_QueryInterfaceSettings)) {
    return FALSE;
  }
  const auto winUsb = GetWinUsb(InterfaceHandle, Call::WinUsb_QueryInterfaceSettings);
  if (winUsb == nullptr) {
    return FALSE;
  }
  USB_INTERFACE_DESCRIPTOR settings{};
  if (!winUsb->target->details().usb->QueryInterfaceSettings(AlternateInterfaceNumber, settings)) {
    return FailWith(ERROR_NO_MORE_ITEMS);
  }
  *UsbAltInterfaceDescriptor = settings;
  return TRUE;
}

BOOL WINAPI WinUsb_SetCurrentAlternateSetting(WINUSB_INTERFACE_HANDLE InterfaceHandle,
                                              UCHAR SettingNumber) {
  if (FailsAtEntry(Call::WinUsb_SetCurrentAlternateSetting)) {
    return FALSE;
  }
  const auto winUsb = GetWinUsb(InterfaceHandle, Call::WinUsb_SetCurrentAlternateSetting);
  return winUsb != nullptr && SelectSetting(*winUsb, SettingNumber);
}

BOOL WINAPI WinUsb_ControlTransfer(WINUSB_INTERFACE_HANDLE InterfaceHandle,
                                   WINUSB_SETUP_PACKET SetupPacket, PUCHAR Buffer,
                                   ULONG BufferLength, PULONG LengthTransferred,
                                   LPOVERLAPPED Overlapped) {
  if (FailsAtEntry(Call::WinUsb_ControlTransfer)) {
    return FALSE;
  }
  const auto winUsb = GetWinUsb(InterfaceHandle, Call::WinUsb_ControlTransfer);
  if (winUsb == nullptr) {
    return FALSE;
  }
  if (Overlapped != nullptr) {
    Refuse(Call::WinUsb_ControlTransfer, "an overlapped transfer is");
    return FALSE;
  }
  if (SetupPacket.Length > MostTransferBytes || BufferLength > MostTransferBytes) {
    return FailWith(ERROR_INVALID_PARAMETER);
  }
  if (SetupPacket.Length > BufferLength || (Buffer == nullptr && SetupPacket.Length != 0)) {
    TheMachine().faults.Add("WinUsb_ControlTransfer: wLength goes beyond the buffer");
    return FailWith(ERROR_INVALID_PARAMETER);
  }

  const bool toHost = (SetupPacket.RequestType & DirectionToHost) != 0;
  Bytes data;
  if (!toHost && SetupPacket.Length != 0) {
    data.assign(Buffer, Buffer + SetupPacket.Length);
  }
  if (LengthTransferred != nullptr) {
    *LengthTransferred = 0;
  }
  if (!Carry(*winUsb, SetupPacket, data)) {
    return FALSE;
  }
  if (toHost) {
    std::copy(data.begin(), data.end(), Buffer);
  }
  if (LengthTransferred != nullptr) {
    *LengthTransferred = static_cast<ULONG>(data.size());
  }
  return TRUE;
}
