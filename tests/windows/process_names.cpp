#include "tests/windows/process_names.h"

#include <windows.h>

#include <cstring>
#include <cwchar>

namespace {

BOOL WINAPI EnumModules(HANDLE process, HMODULE* modules, DWORD, DWORD* bytes) {
  *modules = reinterpret_cast<HMODULE>(1);
  *bytes = sizeof(*modules);
  return process != nullptr;
}

DWORD WINAPI GetBaseName(HANDLE process, HMODULE, WCHAR* name, DWORD chars) {
  WCHAR path[MAX_PATH] = {};
  DWORD pathChars = MAX_PATH;
  const WCHAR* const last = QueryFullProcessImageNameW(process, 0, path, &pathChars)
                                ? std::wcsrchr(path, L'\\')
                                : nullptr;
  if (last == nullptr || std::wcslen(last) > chars) {
    return 0;
  }
  std::wcscpy(name, last + 1);
  return static_cast<DWORD>(std::wcslen(name));
}

void* Replacement(const char* name) {
  if (std::strcmp(name, "K32EnumProcessModules") == 0) {
    return reinterpret_cast<void*>(EnumModules);
  }
  return std::strcmp(name, "K32GetModuleBaseNameW") == 0 ? reinterpret_cast<void*>(GetBaseName)
                                                         : nullptr;
}

void Write(void** place, void* value) {
  DWORD before = 0;
  VirtualProtect(place, sizeof(*place), PAGE_READWRITE, &before);
  *place = value;
  VirtualProtect(place, sizeof(*place), before, &before);
}

}  // namespace

// A library's names and the addresses found for them stand in two tables side by side.
void AnswerProcessNames() {
  auto* const image = reinterpret_cast<BYTE*>(GetModuleHandleW(nullptr));
  const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(
      image + reinterpret_cast<const IMAGE_DOS_HEADER*>(image)->e_lfanew);
  const DWORD imports =
      headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  const auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(image + imports);
  for (; library->Name != 0; ++library) {
    const auto* names =
        reinterpret_cast<const IMAGE_THUNK_DATA64*>(image + library->OriginalFirstThunk);
    auto* place = reinterpret_cast<void**>(image + library->FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++place) {
      const auto* const byName =
          reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(image + names->u1.AddressOfData);
      if (void* const mine = Replacement(reinterpret_cast<const char*>(byName->Name))) {
        Write(place, mine);
      }
    }
  }
}
