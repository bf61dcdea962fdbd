#include "keyboard/hid_interface_list.h"

#include "keyboard/keyboard_ids.h"

CONFIGRET HidInterfaceList::Measure(GUID& classGuid) {
  return CM_Get_Device_Interface_List_SizeW(&listChars_, &classGuid, nullptr,
                                            CM_GET_DEVICE_INTERFACE_LIST_PRESENT);
}

bool HidInterfaceList::Allocate() {
  return buffer_.Allocate(listChars_);
}

CONFIGRET HidInterfaceList::Fetch(GUID& classGuid) {
  return CM_Get_Device_Interface_ListW(&classGuid, nullptr, buffer_.data(), listChars_,
                                       CM_GET_DEVICE_INTERFACE_LIST_PRESENT);
}

HANDLE OpenHidInterface(const WCHAR* path, DWORD desiredAccess) {
  return CreateFileW(path, desiredAccess, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                     OPEN_EXISTING, 0, nullptr);
}

bool ReadHidAttributes(HANDLE file, HIDD_ATTRIBUTES& attributes) {
  attributes = {};
  attributes.Size = sizeof(attributes);
  if (HidD_GetAttributes(file, &attributes)) {
    return true;
  }
  attributes = {};
  return false;
}

bool IsKeyboard(const HIDD_ATTRIBUTES& attributes) {
  return attributes.VendorID == KeyboardVendorId && attributes.ProductID == KeyboardProductId;
}
