// Windows' basic types, handles and calling conventions, with Windows' own widths and signs.
//
// The service names these types as it does on Windows; each has the width and the sign that it has
// there, whatever the host's own types of the same name are. Included through <windows.h>.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

// One calling convention serves every 64-bit processor, so the markers say nothing here.
#define WINAPI
#define NTAPI
#define CALLBACK
#define EXTERN_C extern "C"
#define DECLSPEC_NORETURN [[noreturn]]
#define DECLSPEC_SELECTANY __attribute__((weak))
#define VOID void

#define WINDOWS_UTF16_LITERAL(quoted) u##quoted
#define TEXT(quoted) WINDOWS_UTF16_LITERAL(quoted)

#define FALSE 0
#define TRUE 1
#define MAX_PATH 260
#define ANYSIZE_ARRAY 1

using CHAR = char;
using UCHAR = std::uint8_t;
using BYTE = std::uint8_t;
using BOOLEAN = std::uint8_t;
using USHORT = std::uint16_t;
using WORD = std::uint16_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
using BOOL = std::int32_t;
using ULONGLONG = std::uint64_t;
using LONG_PTR = std::intptr_t;
using SIZE_T = std::size_t;
using WCHAR = char16_t;
using NTSTATUS = LONG;

using PVOID = void*;
using LPVOID = void*;
using PUCHAR = UCHAR*;
using PBYTE = BYTE*;
using LPBYTE = BYTE*;
using PULONG = ULONG*;
using PDWORD = DWORD*;
using LPDWORD = DWORD*;
using LPBOOL = BOOL*;
using LPSTR = CHAR*;
using LPCSTR = const CHAR*;
using LPCCH = const CHAR*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPCWCH = const WCHAR*;
using PWCHAR = WCHAR*;

static_assert(sizeof(CHAR) == 1 && sizeof(UCHAR) == 1 && sizeof(BYTE) == 1);
static_assert(sizeof(BOOLEAN) == 1 && std::is_unsigned_v<BOOLEAN>);
static_assert(sizeof(USHORT) == 2 && sizeof(WORD) == 2);
static_assert(sizeof(UINT) == 4 && std::is_unsigned_v<UINT>);
static_assert(sizeof(LONG) == 4 && std::is_signed_v<LONG>);
static_assert(sizeof(ULONG) == 4 && std::is_unsigned_v<ULONG>);
static_assert(sizeof(DWORD) == 4 && std::is_unsigned_v<DWORD>);
static_assert(sizeof(BOOL) == 4 && std::is_signed_v<BOOL>);
static_assert(sizeof(ULONGLONG) == 8);
static_assert(sizeof(LONG_PTR) == 8 && sizeof(SIZE_T) == 8);
static_assert(sizeof(WCHAR) == 2 && !std::is_same_v<WCHAR, USHORT>);
static_assert(sizeof(NTSTATUS) == 4 && std::is_signed_v<NTSTATUS>);

// Kernel objects and device files share one type, as they do on Windows. The others differ, so that
// a handle of the wrong kind does not compile.
using HANDLE = void*;
using PHANDLE = HANDLE*;

#define DECLARE_HANDLE(name) \
  struct name##__ {          \
    int unused;              \
  };                         \
  using name = name##__*

DECLARE_HANDLE(HKEY);
DECLARE_HANDLE(HINSTANCE);
using PHKEY = HKEY*;
using HMODULE = HINSTANCE;

static_assert(sizeof(HANDLE) == 8 && sizeof(HKEY) == 8 && sizeof(HMODULE) == 8);

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))

struct GUID {
  ULONG Data1;
  USHORT Data2;
  USHORT Data3;
  UCHAR Data4[8];
};
using LPGUID = GUID*;
static_assert(sizeof(GUID) == 16);

inline bool operator==(const GUID& left, const GUID& right) {
  return __builtin_memcmp(&left, &right, sizeof(GUID)) == 0;
}

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};
using PFILETIME = FILETIME*;
static_assert(sizeof(FILETIME) == 8);

struct LUID {
  DWORD LowPart;
  LONG HighPart;
};
using PLUID = LUID*;
static_assert(sizeof(LUID) == 8);

// Handed over as null everywhere; the layer refuses any other.
struct SECURITY_ATTRIBUTES {
  DWORD nLength;
  LPVOID lpSecurityDescriptor;
  BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;
static_assert(sizeof(SECURITY_ATTRIBUTES) == 24);

struct OVERLAPPED;
using LPOVERLAPPED = OVERLAPPED*;
