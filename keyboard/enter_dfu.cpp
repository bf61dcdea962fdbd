#include "keyboard/enter_dfu.h"

#include <windows.h>

#include <hidsdi.h>

#include "common/debug_output.h"
#include "keyboard/hid_discovery.h"
#include "keyboard/keyboard_departure.h"

namespace {

constexpr u8 EnterDfuReportId = 0x17;
constexpr u8 RestartInDfuMode = 0x01;

// More than any output report of the keyboard; the driver takes from it what the report needs.
constexpr ULONG ReportBytes = 2048;

void CloseKeyboard() {
  if (keyboardHandle != INVALID_HANDLE_VALUE) {
    CloseHandle(keyboardHandle);
    keyboardHandle = INVALID_HANDLE_VALUE;
  }
}

}  // namespace

i32 EnterDfuMode() {
  GUID hidGuid;
  HidD_GetHidGuid(&hidGuid);
  if (FindHidDevice(&hidGuid, &keyboardHandle) == 1) {
    WriteDebugText(TEXT("Found Device\n"));
  }
  const i32 sent = SendEnterDfuReport();
  CloseKeyboard();
  if (sent == 1) {
    return 1;
  }
  WriteDebugText(TEXT("Enter DFU:: fail\n"));
  return 0;
}

i32 SendEnterDfuReport() {
  // The bytes behind the command are zero, so that nothing of this process leaves for the device.
  u8 report[ReportBytes] = {EnterDfuReportId, RestartInDfuMode};
  NoteReportBegins();
  if (!HidD_SetOutputReport(keyboardHandle, report, ReportBytes)) {
    const DWORD error = GetLastError();
    NoteReportRefused();
    WriteDebugText(TEXT("failed in HidD_SetOutputReport.\n"));
    WriteDebugFormat(TEXT("HIDSetOutputReport failed Error:%d"), error);
    return 0;
  }
  WriteDebugText(TEXT("HidD_SetOutputReport done.\n"));
  return 1;
}
