#include "tests/windows/run_log.h"

#include <windows.h>

namespace {

HANDLE OpenLog(DWORD access, DWORD disposition) {
  const std::string path = std::string(RunFolder) + "log.txt";
  return CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, disposition,
                     FILE_ATTRIBUTE_NORMAL, nullptr);
}

}  // namespace

// One write a line: lines of two processes do not mix.
void Log(const std::string& line) {
  std::string text = std::to_string(GetTickCount64()) + " ";
  for (const char character : line) {
    text += character == '\n' || character == '\r' ? '|' : character;
  }
  text += "\n";
  const HANDLE file = OpenLog(FILE_APPEND_DATA, OPEN_ALWAYS);
  DWORD written = 0;
  WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  CloseHandle(file);
}

std::string Hex(unsigned int number) {
  std::string text = "0x";
  for (int shift = 28; shift >= 0; shift -= 4) {
    text += "0123456789ABCDEF"[number >> shift & 0xF];
  }
  return text;
}

unsigned int CountInLog(const std::string& text) {
  const HANDLE file = OpenLog(GENERIC_READ, OPEN_EXISTING);
  if (file == INVALID_HANDLE_VALUE) {
    return 0;
  }
  std::string all;
  char piece[4096];
  DWORD bytes = 0;
  while (ReadFile(file, piece, sizeof(piece), &bytes, nullptr) && bytes != 0) {
    all.append(piece, bytes);
  }
  CloseHandle(file);
  unsigned int count = 0;
  for (std::size_t at = all.find(text); at != std::string::npos;) {
    ++count;
    at = all.find('\n', at);
    at = at == std::string::npos ? at : all.find(text, at);
  }
  return count;
}
