#include "keyboard/keyboard_version.h"

#include <windows.h>

#include "common/debug_output.h"
#include "common/handles.h"
#include "keyboard/hid_interface_list.h"

FirmwareVersion deviceVersion = {};

namespace {

// The length given to the call, in bytes. It is odd on purpose: the driver may fill half of the
// last character.
constexpr ULONG ProductStringBytes = 255;
constexpr std::size_t ProductStringChars = 128;
static_assert(ProductStringChars * sizeof(WCHAR) >= ProductStringBytes);
static_assert(HwRevPosition < ProductStringBytes / sizeof(WCHAR));

// The digit at a position as a number; 0 for any other character and behind the end of the text.
i32 DigitAt(const WCHAR* text, std::size_t position) {
  for (std::size_t index = 0; index < position; ++index) {
    if (text[index] == 0) {
      return 0;
    }
  }
  const WCHAR character = text[position];
  return character >= '0' && character <= '9' ? character - '0' : 0;
}

// The list may have changed since it was measured. It then stays empty, and so does the walk.
bool ListInterfaces(HidInterfaceList& list) {
  GUID hidGuid;
  HidD_GetHidGuid(&hidGuid);
  if (list.Measure(hidGuid) != CR_SUCCESS) {
    WriteDebugText(TEXT("1........."));
    return false;
  }
  if (!list.Allocate()) {
    WriteDebugText(TEXT("Out of memory\n"));
    return false;
  }
  if (list.Fetch(hidGuid) != CR_SUCCESS) {
    WriteDebugText(TEXT("2.........."));
  }
  return true;
}

void ReadProductString(HANDLE file) {
  WCHAR productString[ProductStringChars] = {};
  if (!HidD_GetProductString(file, productString, ProductStringBytes)) {
    const DWORD error = GetLastError();
    WriteDebugFormat(TEXT("Fail:: get Version number:: %d\n"), error);
    return;
  }
  WriteDebugText(TEXT("Success:: get Version number\n"));
  deviceVersion.major = DigitAt(productString, MajorPosition);
  deviceVersion.minor = DigitAt(productString, MinorPosition);
  deviceVersion.modelId = DigitAt(productString, ModelIdPosition);
  deviceVersion.hwRev = DigitAt(productString, HwRevPosition);
}

}  // namespace

void ReadKeyboardVersion() {
  deviceVersion = {};

  HidInterfaceList list;
  if (!ListInterfaces(list)) {
    return;
  }

  MultiStringWalk paths = list.Paths();
  while (const WCHAR* path = paths.NextString()) {
    // Interfaces that others keep to themselves are skipped without a line.
    FileHandle file(OpenHidInterface(path, GENERIC_READ));
    HIDD_ATTRIBUTES attributes;
    if (file.valid() && ReadHidAttributes(file.get(), attributes) && IsKeyboard(attributes)) {
      ReadProductString(file.get());
    }
  }
}
