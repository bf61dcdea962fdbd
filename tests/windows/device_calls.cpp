// What vantrel.exe calls in cfgmgr32.dll, hid.dll and winusb.dll, answered by the keyboard. The
// three libraries beside it hand these calls on.
//
// <initguid.h> makes this file define the property key that it knows.
#include <initguid.h>

#include <windows.h>
#include <winusb.h>

#include <cfgmgr32.h>
#include <devpkey.h>
#include <hidsdi.h>

#include <algorithm>
#include <cstring>

#include "simulator/dfu_descriptors.h"
#include "tests/windows/process_names.h"
#include "tests/windows/run_log.h"
#include "tests/windows/wine_keyboard.h"

using platform::Bytes;
using wine::TheKeyboard;

namespace {

constexpr DWORD DebugTextException = 0x40010006;
constexpr DEVINST DfuNode = 2;

// The lines for the debugger, which Wine's OutputDebugStringW raises as an exception with the text
// in ANSI. Nobody else is asked: the line has been taken.
LONG CALLBACK LogDebugText(EXCEPTION_POINTERS* pointers) {
  const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
  if (record.ExceptionCode != DebugTextException || record.NumberParameters != 2) {
    return EXCEPTION_CONTINUE_SEARCH;
  }
  Log(std::string("says ") + reinterpret_cast<const char*>(record.ExceptionInformation[1]));
  return EXCEPTION_CONTINUE_EXECUTION;
}

// A list of paths, with a NUL behind each and one at the end.
std::wstring ListOf(const GUID& classGuid) {
  std::wstring list;
  for (const std::wstring& path : TheKeyboard().Paths(classGuid)) {
    list += path + L'\0';
  }
  return list + L'\0';
}

CONFIGRET CopyText(const WCHAR* text, void* buffer, ULONG& bytes) {
  const ULONG needed = static_cast<ULONG>((std::wcslen(text) + 1) * sizeof(WCHAR));
  const bool fits = bytes >= needed;
  bytes = needed;
  if (fits) {
    std::memcpy(buffer, text, needed);
  }
  return fits ? CR_SUCCESS : CR_BUFFER_SMALL;
}

}  // namespace

extern "C" {

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    AddVectoredExceptionHandler(1, LogDebugText);
#if defined(__aarch64__)
    AnswerProcessNames();
#endif
    TheKeyboard();
  }
  return TRUE;
}

// ---- cfgmgr32 ----

CONFIGRET WINAPI CM_Get_Device_Interface_List_SizeW(PULONG chars, LPGUID classGuid, DEVINSTID_W,
                                                    ULONG) {
  *chars = static_cast<ULONG>(ListOf(*classGuid).size());
  return CR_SUCCESS;
}

CONFIGRET WINAPI CM_Get_Device_Interface_ListW(LPGUID classGuid, DEVINSTID_W, PWCHAR buffer,
                                               ULONG chars, ULONG) {
  const std::wstring list = ListOf(*classGuid);
  if (chars < list.size()) {
    return CR_BUFFER_SMALL;
  }
  std::memcpy(buffer, list.data(), list.size() * sizeof(WCHAR));
  return CR_SUCCESS;
}

CONFIGRET WINAPI CM_Get_Device_Interface_PropertyW(LPCWSTR path, CONST DEVPROPKEY* key,
                                                   DEVPROPTYPE* type, PBYTE buffer, PULONG bytes,
                                                   ULONG) {
  if (std::wcscmp(path, wine::DfuPath) != 0 || key->pid != DEVPKEY_Device_InstanceId.pid) {
    return CR_NO_SUCH_VALUE;
  }
  *type = DEVPROP_TYPE_STRING;
  return CopyText(wine::DfuInstanceId, buffer, *bytes);
}

CONFIGRET WINAPI CM_Locate_DevNodeW(PDEVINST node, DEVINSTID_W id, ULONG) {
  *node = DfuNode;
  return id != nullptr && std::wcscmp(id, wine::DfuInstanceId) == 0 ? CR_SUCCESS
                                                                    : CR_NO_SUCH_DEVNODE;
}

CONFIGRET WINAPI CM_Get_DevNode_Registry_PropertyW(DEVINST node, ULONG property, PULONG,
                                                   PVOID buffer, PULONG bytes, ULONG) {
  return node == DfuNode && property == CM_DRP_DEVICEDESC
             ? CopyText(L"Keyboard firmware update", buffer, *bytes)
             : CR_NO_SUCH_VALUE;
}

CONFIGRET WINAPI CM_Register_Notification(PCM_NOTIFY_FILTER filter, PVOID,
                                          PCM_NOTIFY_CALLBACK callback, PHCMNOTIFICATION handle) {
  if (filter->cbSize != 416 || filter->FilterType != CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE) {
    Log("FAULT: a filter of another size or type");
    return CR_INVALID_DATA;
  }
  *handle = reinterpret_cast<HCMNOTIFICATION>(1);
  TheKeyboard().Register(*filter, callback);
  return CR_SUCCESS;
}

// ---- hid ----

void NTAPI HidD_GetHidGuid(LPGUID guid) {
  *guid = wine::HidInterface;
}

BOOLEAN NTAPI HidD_GetAttributes(HANDLE file, PHIDD_ATTRIBUTES attributes) {
  if (TheKeyboard().Collection(file) == nullptr) {
    SetLastError(ERROR_DEVICE_NOT_CONNECTED);
    return FALSE;
  }
  *attributes = {sizeof(HIDD_ATTRIBUTES), KeyboardVendorId, KeyboardProductId, 0x0100};
  return TRUE;
}

BOOLEAN NTAPI HidD_GetPreparsedData(HANDLE file, PHIDP_PREPARSED_DATA* data) {
  const simulator::HidCollectionOptions* const collection = TheKeyboard().Collection(file);
  if (collection == nullptr) {
    SetLastError(ERROR_DEVICE_NOT_CONNECTED);
    return FALSE;
  }
  Log("opens preparsed data");
  *data = reinterpret_cast<PHIDP_PREPARSED_DATA>(new simulator::HidCollectionOptions(*collection));
  return TRUE;
}

BOOLEAN NTAPI HidD_FreePreparsedData(PHIDP_PREPARSED_DATA data) {
  Log("closes preparsed data");
  delete reinterpret_cast<simulator::HidCollectionOptions*>(data);
  return TRUE;
}

NTSTATUS NTAPI HidP_GetCaps(PHIDP_PREPARSED_DATA data, PHIDP_CAPS capabilities) {
  const auto& collection = *reinterpret_cast<simulator::HidCollectionOptions*>(data);
  *capabilities = {};
  capabilities->UsagePage = collection.usagePage;
  capabilities->Usage = collection.usage;
  capabilities->InputReportByteLength = collection.inputReportBytes;
  capabilities->OutputReportByteLength = collection.outputReportBytes;
  return HIDP_STATUS_SUCCESS;
}

BOOLEAN NTAPI HidD_GetProductString(HANDLE file, PVOID buffer, ULONG bytes) {
  const auto text =
      TheKeyboard().Collection(file) != nullptr ? TheKeyboard().ProductString() : std::nullopt;
  const std::size_t needed = text.has_value() ? (text->size() + 1) * sizeof(WCHAR) : 0;
  if (needed == 0 || bytes < needed) {
    SetLastError(needed == 0 ? ERROR_DEVICE_NOT_CONNECTED : ERROR_INVALID_USER_BUFFER);
    return FALSE;
  }
  std::memcpy(buffer, text->c_str(), needed);
  return TRUE;
}

BOOLEAN NTAPI HidD_SetOutputReport(HANDLE file, PVOID report, ULONG bytes) {
  const bool taken = TheKeyboard().TakeReport(file, static_cast<const u8*>(report), bytes);
  if (!taken) {
    SetLastError(ERROR_GEN_FAILURE);
  }
  return taken;
}

// ---- winusb ----

BOOL WINAPI WinUsb_Initialize(HANDLE file, PWINUSB_INTERFACE_HANDLE handle) {
  if (wine::NameOf(file) != L"dfu" || TheKeyboard().Paths(wine::DfuInterface).empty()) {
    SetLastError(ERROR_BAD_COMMAND);
    return FALSE;
  }
  Log("opens WinUSB");
  *handle = new HANDLE(file);
  return TRUE;
}

// The file must still be open: it is closed after its WinUSB handle.
BOOL WINAPI WinUsb_Free(WINUSB_INTERFACE_HANDLE handle) {
  auto* const file = static_cast<HANDLE*>(handle);
  Log(wine::NameOf(*file) == L"dfu" ? "closes WinUSB" : "FAULT: the file is closed before WinUSB");
  delete file;
  return TRUE;
}

BOOL WINAPI WinUsb_ControlTransfer(WINUSB_INTERFACE_HANDLE, WINUSB_SETUP_PACKET setup,
                                   PUCHAR buffer, ULONG bytes, PULONG transferred, LPOVERLAPPED) {
  if (setup.Length > bytes) {
    Log("FAULT: a transfer longer than its buffer");
    return FALSE;
  }
  Bytes data;
  if (!simulator::IsToHost(setup)) {
    data.assign(buffer, buffer + setup.Length);
  }
  const bool done = TheKeyboard().Transfer(setup, data);
  if (done && simulator::IsToHost(setup)) {
    std::copy_n(data.begin(), std::min<std::size_t>(data.size(), bytes), buffer);
  }
  if (transferred != nullptr) {
    *transferred = done ? static_cast<ULONG>(data.size()) : 0;
  }
  return done;
}

BOOL WINAPI WinUsb_GetDescriptor(WINUSB_INTERFACE_HANDLE handle, UCHAR type, UCHAR index,
                                 USHORT language, PUCHAR buffer, ULONG bytes, PULONG transferred) {
  const auto value = static_cast<USHORT>(type << 8 | index);
  return WinUsb_ControlTransfer(handle,
                                {simulator::StandardToHost, simulator::GetDescriptorRequest, value,
                                 language, static_cast<USHORT>(bytes)},
                                buffer, bytes, transferred, nullptr);
}

BOOL WINAPI WinUsb_QueryInterfaceSettings(WINUSB_INTERFACE_HANDLE, UCHAR index,
                                          PUSB_INTERFACE_DESCRIPTOR settings) {
  const auto found = simulator::SettingDescriptor(simulator::KeyboardOptions(), index);
  if (!found.has_value()) {
    SetLastError(ERROR_NO_MORE_ITEMS);
    return FALSE;
  }
  *settings = *found;
  return TRUE;
}

BOOL WINAPI WinUsb_SetCurrentAlternateSetting(WINUSB_INTERFACE_HANDLE handle, UCHAR setting) {
  return WinUsb_ControlTransfer(handle, {0x01, 11, setting, 0, 0}, nullptr, 0, nullptr, nullptr);
}
}
