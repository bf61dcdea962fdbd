#include "dfudevice/descriptors.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "common/status.h"
#include "common/wide_string.h"
#include "dfudevice/configuration_set.h"
#include "dfudevice/memory_map.h"
#include "dfudevice/memory_map_parser.h"

namespace {

constexpr u32 DescriptorBufferBytes = 512;
constexpr u32 InterfaceDescriptorBytes = 9;
constexpr u32 StringHeaderBytes = 2;
constexpr u16 EnglishUnitedStates = 0x0409;

// The fewest maps that a table has room for.
constexpr u32 SmallestTableMaps = 2;

struct DescriptorBuffer {
  u8 bytes[DescriptorBufferBytes];
  // How many of them came from the device.
  u32 count;
};

bool ReadDescriptor(WINUSB_INTERFACE_HANDLE winUsbHandle, u8 type, u8 index, u16 languageId,
                    DescriptorBuffer& buffer) {
  ULONG transferred = 0;
  if (!WinUsb_GetDescriptor(winUsbHandle, type, index, languageId, buffer.bytes,
                            DescriptorBufferBytes, &transferred)) {
    return false;
  }
  buffer.count = std::min(static_cast<u32>(transferred), DescriptorBufferBytes);
  return true;
}

bool ReadConfigurationSet(WINUSB_INTERFACE_HANDLE winUsbHandle, DescriptorBuffer& set) {
  return ReadDescriptor(winUsbHandle, USB_CONFIGURATION_DESCRIPTOR_TYPE, 0, 0, set);
}

// Takes the text of a string descriptor, as long as it says and no longer than was read, into the
// ANSI code page. The text is empty when that is not possible.
void NarrowString(const DescriptorBuffer& descriptor, char (&text)[MemoryMapTextChars + 1]) {
  WCHAR wide[DescriptorBufferBytes / sizeof(WCHAR)] = {};
  const u32 length = std::min(u32{descriptor.bytes[0]}, descriptor.count);
  if (length > StringHeaderBytes) {
    const u32 wideChars = (length - StringHeaderBytes) / sizeof(WCHAR);
    std::memcpy(wide, descriptor.bytes + StringHeaderBytes, wideChars * sizeof(WCHAR));
  }
  NarrowToAnsi(wide, text, sizeof(text));
}

u32 DecodeMemoryMap(WINUSB_INTERFACE_HANDLE winUsbHandle, u8 settingIndex, MemoryMap& map) {
  USB_INTERFACE_DESCRIPTOR setting = {};
  if (!WinUsb_QueryInterfaceSettings(winUsbHandle, settingIndex, &setting)) {
    return 0;
  }
  DescriptorBuffer descriptor = {};
  if (!ReadDescriptor(winUsbHandle, USB_STRING_DESCRIPTOR_TYPE, setting.iInterface,
                      EnglishUnitedStates, descriptor)) {
    return 0;
  }
  // String 0 is the table of languages, which no interface is described by.
  if (setting.iInterface == 0) {
    return StatusNothingToWorkOn;
  }

  char text[MemoryMapTextChars + 1] = {};
  NarrowString(descriptor, text);
  map.alternateSetting = setting.bAlternateSetting;
  return ParseMemoryMap(text, std::strlen(text), map);
}

// Gives the table the maps of settingCount alternate settings. Returns as DecodeMemoryMaps does; on
// any result but 1 the table may be filled in part.
u32 FillTable(WINUSB_INTERFACE_HANDLE winUsbHandle, u32 settingCount, MemoryMapTable& table) {
  table.maps = new (std::nothrow) MemoryMap[std::max(settingCount, SmallestTableMaps)]();
  if (table.maps == nullptr) {
    return 0;
  }
  table.mapCount = settingCount;
  u32 sectors = 0;
  for (u32 i = 0; i < settingCount; ++i) {
    // A set of 512 bytes has no room for 256 interface descriptors.
    const u32 result = DecodeMemoryMap(winUsbHandle, static_cast<u8>(i), table.maps[i]);
    if (result != 1) {
      return result;
    }
    // A set has room for many settings, which may all name one huge map.
    sectors += table.maps[i].sectorCount;
    if (sectors > MemoryMapMaxSectors) {
      return StatusNothingToWorkOn;
    }
  }
  return 1;
}

}  // namespace

u32 DecodeMemoryMaps(WINUSB_INTERFACE_HANDLE winUsbHandle) {
  // The interface descriptor tells nothing that the set does not; the device is asked for it first
  // nevertheless, and may refuse it.
  u8 interfaceDescriptor[InterfaceDescriptorBytes] = {};
  ULONG transferred = 0;
  WinUsb_GetDescriptor(winUsbHandle, USB_INTERFACE_DESCRIPTOR_TYPE, 0, 0, interfaceDescriptor,
                       InterfaceDescriptorBytes, &transferred);
  DescriptorBuffer set = {};
  if (!ReadConfigurationSet(winUsbHandle, set)) {
    return 0;
  }
  const u32 settingCount = CountAlternateSettings(set.bytes, set.count);
  if (settingCount == 0) {
    return 0;
  }

  MemoryMapTable table = {};
  const u32 result = FillTable(winUsbHandle, settingCount, table);
  if (result != 1) {
    EmptyMemoryMapTable(table);
    return result;
  }
  FindTransferSize(set.bytes, set.count, table.transferSize);
  memoryMapTable = table;
  return 1;
}

u32 ReadTransferSize(WINUSB_INTERFACE_HANDLE winUsbHandle, u16& transferSize) {
  DescriptorBuffer set = {};
  if (!ReadConfigurationSet(winUsbHandle, set) ||
      !FindTransferSize(set.bytes, set.count, transferSize)) {
    return StatusRequestFailed;
  }
  return StatusSuccess;
}
