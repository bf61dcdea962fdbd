// Reading the registry. Its calls return their errors and leave the last error alone.
#include <windows.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/winapi/refusal.h"

using platform::Call;
using platform::EnterCall;
using platform::EnterSureCall;
using platform::HandleKind;
using platform::OpenRegistryKey;
using platform::Refuse;
using platform::RegistryKeyNode;
using platform::RegistryValue;
using platform::TheMachine;

namespace {

LSTATUS RefuseStatus(Call call, const char* what) {
  return static_cast<LSTATUS>(Refuse(call, what));
}

// The key behind a handle: ERROR_SUCCESS, ERROR_INVALID_HANDLE or ERROR_KEY_DELETED.
LSTATUS KeyOf(HKEY handle, Call call, std::shared_ptr<RegistryKeyNode>& key) {
  if (handle == HKEY_LOCAL_MACHINE) {
    key = TheMachine().registry.Find(nullptr, {});
    return ERROR_SUCCESS;
  }
  const auto open =
      TheMachine().handles.Get<OpenRegistryKey>(handle, HandleKind::RegistryKey, NameOf(call));
  if (open == nullptr) {
    return ERROR_INVALID_HANDLE;
  }
  key = open->node;
  return TheMachine().registry.IsDeleted(*key) ? ERROR_KEY_DELETED : ERROR_SUCCESS;
}

std::u16string_view TextOrEmpty(LPCWSTR text) {
  return text == nullptr ? std::u16string_view() : std::u16string_view(text);
}

// A string comes back whole and terminated, however it is stored.
void Terminate(std::vector<BYTE>& bytes) {
  bytes.resize((bytes.size() + 1) / sizeof(WCHAR) * sizeof(WCHAR));
  const bool terminated =
      bytes.size() >= sizeof(WCHAR) && bytes[bytes.size() - 1] == 0 && bytes[bytes.size() - 2] == 0;
  if (!terminated) {
    bytes.resize(bytes.size() + sizeof(WCHAR));
  }
}

}  // namespace

LSTATUS WINAPI RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired,
                             PHKEY phkResult) {
  if (const DWORD error = EnterCall(Call::RegOpenKeyExW)) {
    return static_cast<LSTATUS>(error);
  }
  if (ulOptions != 0 || samDesired != (KEY_ALL_ACCESS | KEY_WOW64_64KEY)) {
    return RefuseStatus(Call::RegOpenKeyExW, "options and less than full access are");
  }
  std::shared_ptr<RegistryKeyNode> from;
  if (const LSTATUS status = KeyOf(hKey, Call::RegOpenKeyExW, from)) {
    return status;
  }
  const auto key = TheMachine().registry.Find(from, TextOrEmpty(lpSubKey));
  if (key == nullptr) {
    return ERROR_FILE_NOT_FOUND;
  }
  *phkResult = static_cast<HKEY>(
      TheMachine().handles.Open(HandleKind::RegistryKey, std::make_shared<OpenRegistryKey>(key)));
  return ERROR_SUCCESS;
}

LSTATUS WINAPI RegCloseKey(HKEY hKey) {
  EnterSureCall(Call::RegCloseKey);
  if (hKey == HKEY_LOCAL_MACHINE) {
    return ERROR_SUCCESS;
  }
  const bool closed = TheMachine().handles.Close(hKey, HandleKind::RegistryKey, "RegCloseKey");
  return closed ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

LSTATUS WINAPI RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved,
                                LPDWORD lpcSubKeys, LPDWORD lpcbMaxSubKeyLen,
                                LPDWORD lpcbMaxClassLen, LPDWORD lpcValues,
                                LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen,
                                LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime) {
  if (const DWORD error = EnterCall(Call::RegQueryInfoKeyW)) {
    return static_cast<LSTATUS>(error);
  }
  const void* const others[] = {
      lpClass,   lpcchClass,          lpReserved,      lpcbMaxSubKeyLen,       lpcbMaxClassLen,
      lpcValues, lpcbMaxValueNameLen, lpcbMaxValueLen, lpcbSecurityDescriptor, lpftLastWriteTime};
  for (const void* const other : others) {
    if (other != nullptr) {
      return RefuseStatus(Call::RegQueryInfoKeyW, "more than the number of subkeys is");
    }
  }
  std::shared_ptr<RegistryKeyNode> key;
  if (const LSTATUS status = KeyOf(hKey, Call::RegQueryInfoKeyW, key)) {
    return status;
  }
  if (lpcSubKeys != nullptr) {
    *lpcSubKeys = static_cast<DWORD>(TheMachine().registry.SubkeyNames(*key).size());
  }
  return ERROR_SUCCESS;
}

LSTATUS WINAPI RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName,
                             LPDWORD lpReserved, LPWSTR lpClass, LPDWORD lpcchClass,
                             PFILETIME lpftLastWriteTime) {
  if (const DWORD error = EnterCall(Call::RegEnumKeyExW)) {
    return static_cast<LSTATUS>(error);
  }
  if (lpReserved != nullptr || lpClass != nullptr || lpcchClass != nullptr ||
      lpftLastWriteTime != nullptr) {
    return RefuseStatus(Call::RegEnumKeyExW, "more than the subkey's name is");
  }
  std::shared_ptr<RegistryKeyNode> key;
  if (const LSTATUS status = KeyOf(hKey, Call::RegEnumKeyExW, key)) {
    return status;
  }
  const std::vector<std::u16string> names = TheMachine().registry.SubkeyNames(*key);
  if (dwIndex >= names.size()) {
    return ERROR_NO_MORE_ITEMS;
  }
  const std::u16string& name = names[dwIndex];
  if (*lpcchName <= name.size()) {
    return ERROR_MORE_DATA;
  }
  std::memcpy(lpName, name.c_str(), (name.size() + 1) * sizeof(WCHAR));
  *lpcchName = static_cast<DWORD>(name.size());
  return ERROR_SUCCESS;
}

LSTATUS WINAPI RegGetValueW(HKEY hkey, LPCWSTR lpSubKey, LPCWSTR lpValue, DWORD dwFlags,
                            LPDWORD pdwType, PVOID pvData, LPDWORD pcbData) {
  if (const DWORD error = EnterCall(Call::RegGetValueW)) {
    if (error == ERROR_MORE_DATA && pcbData != nullptr) {
      *pcbData += sizeof(WCHAR);
    }
    return static_cast<LSTATUS>(error);
  }
  if (dwFlags != RRF_RT_REG_SZ) {
    return RefuseStatus(Call::RegGetValueW, "other types and flags are");
  }
  if (pvData != nullptr && pcbData == nullptr) {
    return ERROR_INVALID_PARAMETER;
  }
  std::shared_ptr<RegistryKeyNode> from;
  if (const LSTATUS status = KeyOf(hkey, Call::RegGetValueW, from)) {
    return status;
  }
  const auto key = TheMachine().registry.Find(from, TextOrEmpty(lpSubKey));
  RegistryValue value;
  if (key == nullptr || !TheMachine().registry.Read(*key, TextOrEmpty(lpValue), value)) {
    return ERROR_FILE_NOT_FOUND;
  }
  if (pdwType != nullptr) {
    *pdwType = value.type;
  }
  if (value.type != REG_SZ) {
    return ERROR_UNSUPPORTED_TYPE;
  }

  Terminate(value.bytes);
  const DWORD room = pcbData == nullptr ? 0 : *pcbData;
  if (pcbData != nullptr) {
    *pcbData = static_cast<DWORD>(value.bytes.size());
  }
  if (pvData == nullptr) {
    return ERROR_SUCCESS;
  }
  if (value.bytes.size() > room) {
    return ERROR_MORE_DATA;
  }
  std::memcpy(pvData, value.bytes.data(), value.bytes.size());
  return ERROR_SUCCESS;
}
