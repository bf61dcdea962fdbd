#include "common/debug_output.h"

void WriteDebugText(const WCHAR* text) {
  OutputDebugStringW(text);
}

void WriteDebugArguments(const WCHAR* format, const FormatArgument* arguments) {
  WCHAR line[DebugLineChars];
  FormatWide(line, DebugLineChars, format, arguments);
  OutputDebugStringW(line);
}
