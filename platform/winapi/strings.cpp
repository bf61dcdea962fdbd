// Conversion between UTF-16 and the thread's ANSI code page, which is Windows-1252 here.
#include <windows.h>

#include <cstring>
#include <string>

#include "platform/machine/text.h"
#include "platform/winapi/refusal.h"

using platform::Call;
using platform::FailsAtEntry;
using platform::Refuse;

namespace {

// How many characters the source has, its NUL included where the caller left counting to the call;
// 0, with the last error, when the arguments make no sense.
template <class Source, class Target>
std::size_t CountSource(const Source* source, int sourceCount, const Target* target,
                        int targetCount) {
  if (source == nullptr || sourceCount == 0 || targetCount < 0 ||
      (targetCount > 0 && target == nullptr)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  return sourceCount < 0 ? std::char_traits<Source>::length(source) + 1
                         : static_cast<std::size_t>(sourceCount);
}

// Writes count characters, one for one, and returns their number. A target of 0 asks for the number
// alone; one that is too short is filled, and the result is 0.
template <class Target, class Convert>
int ConvertAll(std::size_t count, Target* target, int targetCount, Convert convert) {
  for (std::size_t i = 0; targetCount > 0 && i < count; ++i) {
    if (i == static_cast<std::size_t>(targetCount)) {
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return 0;
    }
    target[i] = convert(i);
  }
  return static_cast<int>(count);
}

}  // namespace

int WINAPI MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCCH lpMultiByteStr, int cbMultiByte,
                               LPWSTR lpWideCharStr, int cchWideChar) {
  if (FailsAtEntry(Call::MultiByteToWideChar)) {
    return 0;
  }
  if (CodePage != CP_THREAD_ACP || (dwFlags & ~DWORD{MB_ERR_INVALID_CHARS}) != 0) {
    Refuse(Call::MultiByteToWideChar, "another code page or flag is");
    return 0;
  }
  const std::size_t count = CountSource(lpMultiByteStr, cbMultiByte, lpWideCharStr, cchWideChar);
  return ConvertAll(count, lpWideCharStr, cchWideChar,
                    [&](std::size_t i) { return platform::WideFromAnsi(lpMultiByteStr[i]); });
}

int WINAPI WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWCH lpWideCharStr, int cchWideChar,
                               LPSTR lpMultiByteStr, int cbMultiByte, LPCCH lpDefaultChar,
                               LPBOOL lpUsedDefaultChar) {
  if (FailsAtEntry(Call::WideCharToMultiByte)) {
    return 0;
  }
  if (CodePage != CP_THREAD_ACP || (dwFlags & ~DWORD{WC_NO_BEST_FIT_CHARS}) != 0) {
    Refuse(Call::WideCharToMultiByte, "another code page or flag is");
    return 0;
  }
  const std::size_t count = CountSource(lpWideCharStr, cchWideChar, lpMultiByteStr, cbMultiByte);
  const bool bestFit = (dwFlags & WC_NO_BEST_FIT_CHARS) == 0;
  BOOL usedDefault = FALSE;
  const int written = ConvertAll(count, lpMultiByteStr, cbMultiByte, [&](std::size_t i) {
    char byte = lpDefaultChar == nullptr ? '?' : *lpDefaultChar;
    if (!platform::AnsiFromWide(lpWideCharStr[i], bestFit, byte)) {
      usedDefault = TRUE;
    }
    return byte;
  });
  if (lpUsedDefaultChar != nullptr) {
    *lpUsedDefaultChar = usedDefault;
  }
  return written;
}
