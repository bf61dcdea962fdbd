// UTF-16 to ANSI text and back. Here every thread's code page is Windows-1252, in which each byte
// is a character, so that both sides of a conversion have the same count.
#include <windows.h>

#include <string>

#include "platform/machine/text.h"
#include "platform/winapi/platform_call.h"

using platform::Call;
using platform::LastErrorCall;

namespace {

// Converts all of the source, one for one, and returns the number of characters; a source count
// below 0 leaves the counting to the call, its NUL included. Windows refuses a target that is the
// source. A target count of 0 asks for the number alone; a target that is too short is filled, and
// the result is 0.
template <class Source, class Target, class Convert>
int ConvertAll(const LastErrorCall<int>& call, const Source* source, int sourceCount,
               Target* target, int targetCount, Convert convert) {
  if (source == nullptr || sourceCount == 0 || targetCount < 0 ||
      (targetCount > 0 && target == nullptr) ||
      static_cast<const void*>(source) == static_cast<const void*>(target)) {
    return call.Fail(ERROR_INVALID_PARAMETER);
  }
  const std::size_t count = sourceCount < 0 ? std::char_traits<Source>::length(source) + 1
                                            : static_cast<std::size_t>(sourceCount);
  for (std::size_t i = 0; targetCount > 0 && i < count; ++i) {
    if (i == static_cast<std::size_t>(targetCount)) {
      return call.Fail(ERROR_INSUFFICIENT_BUFFER);
    }
    target[i] = convert(source[i]);
  }
  return static_cast<int>(count);
}

}  // namespace

// No byte is invalid in this code page, so MB_ERR_INVALID_CHARS would have nothing to find.
int WINAPI MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCCH lpMultiByteStr, int cbMultiByte,
                               LPWSTR lpWideCharStr, int cchWideChar) {
  const LastErrorCall<int> call(Call::MultiByteToWideChar);
  // The text need not end where its memory does.
  call.Note(CodePage, dwFlags, static_cast<const void*>(lpMultiByteStr), cbMultiByte, lpWideCharStr,
            cchWideChar);
  if (call.fails()) {
    return call.Fail();
  }
  if (CodePage != CP_THREAD_ACP || dwFlags != 0) {
    return call.Refuse("another code page or a flag is");
  }
  return ConvertAll(call, lpMultiByteStr, cbMultiByte, lpWideCharStr, cchWideChar,
                    platform::WideFromAnsi);
}

// With no default character of the caller's own, '?' stands for what the code page does not have.
int WINAPI WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWCH lpWideCharStr, int cchWideChar,
                               LPSTR lpMultiByteStr, int cbMultiByte, LPCCH lpDefaultChar,
                               LPBOOL lpUsedDefaultChar) {
  const LastErrorCall<int> call(Call::WideCharToMultiByte);
  call.Note(CodePage, dwFlags, static_cast<const void*>(lpWideCharStr), cchWideChar, lpMultiByteStr,
            cbMultiByte, static_cast<const void*>(lpDefaultChar), lpUsedDefaultChar);
  if (call.fails()) {
    return call.Fail();
  }
  if (CodePage != CP_THREAD_ACP || dwFlags != 0 || lpDefaultChar != nullptr ||
      lpUsedDefaultChar != nullptr) {
    return call.Refuse("another code page, a flag or a default character is");
  }
  return ConvertAll(call, lpWideCharStr, cchWideChar, lpMultiByteStr, cbMultiByte, [](WCHAR unit) {
    char byte = '?';
    platform::AnsiFromWide(unit, byte);
    return byte;
  });
}
