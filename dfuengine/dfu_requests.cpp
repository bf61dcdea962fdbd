#include "dfuengine/dfu_requests.h"

#include "common/status.h"
#include "dfuengine/device_removals.h"

namespace {

u32 SendRequest(WINUSB_INTERFACE_HANDLE winUsbHandle, u8 requestType, u8 request, u16 value,
                u8* data, u16 length) {
  if (winUsbHandle == nullptr) {
    return StatusNoInterfaceHandle;
  }
  WINUSB_SETUP_PACKET setup{};
  setup.RequestType = requestType;
  setup.Request = request;
  setup.Value = value;
  setup.Index = 0;
  setup.Length = length;
  ULONG transferred = 0;
  const u32 removalsTold = DfuRemovalsTold();
  if (!WinUsb_ControlTransfer(winUsbHandle, setup, data, length, &transferred, nullptr)) {
    return 0;
  }
  ForgetDfuRemovals(removalsTold);
  return RequestSucceeded;
}

}  // namespace

u32 RequestDownload(WINUSB_INTERFACE_HANDLE winUsbHandle, u16 blockNumber, u8* data, u16 length) {
  return SendRequest(winUsbHandle, HostToDevice, DFU_DNLOAD, blockNumber,
                     length != 0 ? data : nullptr, length);
}

u32 RequestStatus(HANDLE& fileHandle, WINUSB_INTERFACE_HANDLE& winUsbHandle, DfuStatus* dfuStatus) {
  if (dfuStatus == nullptr) {
    return StatusNoInterfaceHandle;
  }
  // Straight into the record: a short answer must not wipe out what it does not replace.
  const u32 result = SendRequest(winUsbHandle, DeviceToHost, DFU_GETSTATUS, 0, &dfuStatus->bStatus,
                                 sizeof(DfuStatus));
  if (result == RequestSucceeded &&
      (dfuStatus->bState == dfuMANIFEST || dfuStatus->bState == dfuMANIFEST_WAIT_RESET)) {
    CloseDfuHandles(fileHandle, winUsbHandle);
  }
  return result;
}

u32 RequestClearStatus(WINUSB_INTERFACE_HANDLE winUsbHandle) {
  return SendRequest(winUsbHandle, HostToDevice, DFU_CLRSTATUS, 0, nullptr, 0);
}

u32 RequestState(WINUSB_INTERFACE_HANDLE winUsbHandle, u8& bState) {
  return SendRequest(winUsbHandle, DeviceToHost, DFU_GETSTATE, 0, &bState, 1);
}

u32 RequestAbort(WINUSB_INTERFACE_HANDLE winUsbHandle) {
  return SendRequest(winUsbHandle, HostToDevice, DFU_ABORT, 0, nullptr, 0);
}

void CloseDfuHandles(HANDLE& fileHandle, WINUSB_INTERFACE_HANDLE& winUsbHandle) {
  if (winUsbHandle != nullptr) {
    WinUsb_Free(winUsbHandle);
    winUsbHandle = nullptr;
  }
  if (fileHandle != nullptr) {
    CloseHandle(fileHandle);
    fileHandle = nullptr;
  }
}
