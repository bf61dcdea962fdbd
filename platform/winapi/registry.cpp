// Reading the registry. Its calls return their errors and leave the last error alone.
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "platform/winapi/platform_call.h"

using platform::Access;
using platform::Call;
using platform::OpenRegistryKey;
using platform::RegistryKeyNode;
using platform::RegistryValue;
using platform::StatusCall;
using platform::SureCall;
using platform::TheMachine;

namespace {

// Rights to a key that the service never asks for one by one.
constexpr REGSAM QueryValue = 0x0001;
constexpr REGSAM EnumerateSubkeys = 0x0008;

class RegistryCall : public StatusCall<LSTATUS> {
 public:
  explicit RegistryCall(Call call) : StatusCall(call, ERROR_NOT_SUPPORTED) {}
};

// The key behind a handle that grants the access: ERROR_SUCCESS, ERROR_INVALID_HANDLE,
// ERROR_ACCESS_DENIED or ERROR_KEY_DELETED. A handle outlives its key, but is of no more use then.
LSTATUS KeyOf(const RegistryCall& call, HKEY handle, REGSAM rights,
              std::shared_ptr<RegistryKeyNode>& key) {
  if (handle == HKEY_LOCAL_MACHINE) {
    key = TheMachine().registry.Find(nullptr, {});
    return ERROR_SUCCESS;
  }
  const auto open = call.Get<OpenRegistryKey>(handle);
  if (open == nullptr) {
    return ERROR_INVALID_HANDLE;
  }
  if (!open->access.Allows(rights)) {
    return ERROR_ACCESS_DENIED;
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

// Hands a value over as RegGetValueW does. A count alone asks for the room; a buffer without a
// count is nonsense.
LSTATUS CopyValue(const std::vector<BYTE>& bytes, PVOID data, LPDWORD count) {
  const DWORD room = count == nullptr ? 0 : *count;
  if (count != nullptr) {
    *count = static_cast<DWORD>(bytes.size());
  }
  if (data == nullptr) {
    return ERROR_SUCCESS;
  }
  if (bytes.size() > room) {
    return ERROR_MORE_DATA;
  }
  std::memcpy(data, bytes.data(), bytes.size());
  return ERROR_SUCCESS;
}

}  // namespace

// A 64-bit process sees the 64-bit registry with and without KEY_WOW64_64KEY.
LSTATUS WINAPI RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions, REGSAM samDesired,
                             PHKEY phkResult) {
  const RegistryCall call(Call::RegOpenKeyExW);
  call.Note(hKey, lpSubKey, ulOptions, samDesired, phkResult);
  if (call.fails()) {
    return call.Fail();
  }
  if (ulOptions != 0 || !Access::IsModelled(samDesired, KEY_ALL_ACCESS | KEY_WOW64_64KEY)) {
    return call.Refuse("an option or this access is");
  }
  std::shared_ptr<RegistryKeyNode> from;
  if (const LSTATUS status = KeyOf(call, hKey, 0, from)) {
    return call.Return(status);
  }
  const auto key = TheMachine().registry.Find(from, TextOrEmpty(lpSubKey));
  if (key == nullptr) {
    return call.Return(ERROR_FILE_NOT_FOUND);
  }
  *phkResult = static_cast<HKEY>(TheMachine().handles.Open(
      std::make_shared<OpenRegistryKey>(key, Access(samDesired, KEY_ALL_ACCESS))));
  return call.Return(ERROR_SUCCESS);
}

// The predefined keys may be closed, and stay open.
LSTATUS WINAPI RegCloseKey(HKEY hKey) {
  const SureCall call(Call::RegCloseKey);
  call.Note(hKey);
  if (hKey == HKEY_LOCAL_MACHINE) {
    return ERROR_SUCCESS;
  }
  return call.Close<OpenRegistryKey>(hKey) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

// Every result is optional.
LSTATUS WINAPI RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass, LPDWORD lpReserved,
                                LPDWORD lpcSubKeys, LPDWORD lpcbMaxSubKeyLen,
                                LPDWORD lpcbMaxClassLen, LPDWORD lpcValues,
                                LPDWORD lpcbMaxValueNameLen, LPDWORD lpcbMaxValueLen,
                                LPDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime) {
  const RegistryCall call(Call::RegQueryInfoKeyW);
  call.Note(hKey, lpClass, lpcchClass, lpReserved, lpcSubKeys, lpcbMaxSubKeyLen, lpcbMaxClassLen,
            lpcValues, lpcbMaxValueNameLen, lpcbMaxValueLen, lpcbSecurityDescriptor,
            lpftLastWriteTime);
  if (call.fails()) {
    return call.Fail();
  }
  const void* const others[] = {
      lpClass,   lpcchClass,          lpReserved,      lpcbMaxSubKeyLen,       lpcbMaxClassLen,
      lpcValues, lpcbMaxValueNameLen, lpcbMaxValueLen, lpcbSecurityDescriptor, lpftLastWriteTime};
  if (std::any_of(std::begin(others), std::end(others),
                  [](const void* other) { return other != nullptr; })) {
    return call.Refuse("more than the number of subkeys is");
  }
  std::shared_ptr<RegistryKeyNode> key;
  if (const LSTATUS status = KeyOf(call, hKey, QueryValue, key)) {
    return call.Return(status);
  }
  if (lpcSubKeys != nullptr) {
    *lpcSubKeys = static_cast<DWORD>(TheMachine().registry.SubkeyNames(*key).size());
  }
  return call.Return(ERROR_SUCCESS);
}

// The count is in characters, without the NUL on the way out and with it on the way in.
LSTATUS WINAPI RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName,
                             LPDWORD lpReserved, LPWSTR lpClass, LPDWORD lpcchClass,
                             PFILETIME lpftLastWriteTime) {
  const RegistryCall call(Call::RegEnumKeyExW);
  call.Note(hKey, dwIndex, lpName, lpcchName, lpReserved, lpClass, lpcchClass, lpftLastWriteTime);
  if (call.fails()) {
    return call.Fail();
  }
  if (lpReserved != nullptr || lpClass != nullptr || lpcchClass != nullptr ||
      lpftLastWriteTime != nullptr) {
    return call.Refuse("more than the subkey's name is");
  }
  std::shared_ptr<RegistryKeyNode> key;
  if (const LSTATUS status = KeyOf(call, hKey, EnumerateSubkeys, key)) {
    return call.Return(status);
  }
  const std::vector<std::u16string> names = TheMachine().registry.SubkeyNames(*key);
  if (dwIndex >= names.size()) {
    return call.Return(ERROR_NO_MORE_ITEMS);
  }
  const std::u16string& name = names[dwIndex];
  if (*lpcchName <= name.size()) {
    return call.Return(ERROR_MORE_DATA);
  }
  std::memcpy(lpName, name.c_str(), (name.size() + 1) * sizeof(WCHAR));
  *lpcchName = static_cast<DWORD>(name.size());
  return call.Return(ERROR_SUCCESS);
}

LSTATUS WINAPI RegGetValueW(HKEY hkey, LPCWSTR lpSubKey, LPCWSTR lpValue, DWORD dwFlags,
                            LPDWORD pdwType, PVOID pvData, LPDWORD pcbData) {
  const RegistryCall call(Call::RegGetValueW);
  call.Note(hkey, lpSubKey, lpValue, dwFlags, pdwType, pvData, pcbData);
  if (call.fails()) {
    // As if the value had just grown: the room that the caller is told of is more than it had.
    if (call.orderedError() == ERROR_MORE_DATA && pcbData != nullptr) {
      *pcbData += sizeof(WCHAR);
    }
    return call.Fail();
  }
  if (dwFlags != RRF_RT_REG_SZ) {
    return call.Refuse("another type or flag is");
  }
  if (pvData != nullptr && pcbData == nullptr) {
    return call.Return(ERROR_INVALID_PARAMETER);
  }
  std::shared_ptr<RegistryKeyNode> from;
  if (const LSTATUS status = KeyOf(call, hkey, QueryValue, from)) {
    return call.Return(status);
  }
  const auto key = TheMachine().registry.Find(from, TextOrEmpty(lpSubKey));
  RegistryValue value;
  if (key == nullptr || !TheMachine().registry.Read(*key, TextOrEmpty(lpValue), value)) {
    return call.Return(ERROR_FILE_NOT_FOUND);
  }
  if (pdwType != nullptr) {
    *pdwType = value.type;
  }
  if (value.type != REG_SZ) {
    return call.Return(ERROR_UNSUPPORTED_TYPE);
  }
  Terminate(value.bytes);
  return call.Return(CopyValue(value.bytes, pvData, pcbData));
}
