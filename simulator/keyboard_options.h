// What a virtual keyboard is like. The defaults make a healthy one with older firmware; every knob
// makes it odd in one way.
#pragma once

#include <windows.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/types.h"
#include "keyboard/keyboard_ids.h"
#include "simulator/dfu_bootloader.h"
#include "simulator/keyboard_image.h"
#include "simulator/nor_flash.h"

namespace simulator {

// One collection of the keyboard in normal mode, as HID has it.
// Windows opens each collection as a device of its own, and keeps those of keys and pointers to
// itself.
struct HidCollectionOptions {
  USAGE usagePage = 1;
  USAGE usage = 0;
  USHORT inputReportBytes = 64;
  USHORT outputReportBytes = 64;
  DWORD openError = 0;                          // see platform::DeviceInterface
  DWORD readWriteError = 0;                     // the same
  u32 keyboardInterfaces = 0;                   // interfaces of the keyboard class it has as well
  bool refusesProductString = false;            // reading it fails
  std::optional<std::u16string> productString;  // instead of the one with the firmware's version
};

// The system reads the keys of the first one itself and lets nobody else read them; the last one
// takes the enter-DFU report.
inline std::vector<HidCollectionOptions> DefaultHidCollections() {
  HidCollectionOptions keys;
  keys.usage = 6;
  keys.inputReportBytes = 9;
  keys.outputReportBytes = 2;
  keys.readWriteError = ERROR_ACCESS_DENIED;
  keys.keyboardInterfaces = 1;
  HidCollectionOptions media;
  media.usagePage = 0x0C;
  media.usage = 1;
  media.inputReportBytes = 3;
  media.outputReportBytes = 0;
  return {keys, media, HidCollectionOptions{}};
}

// One alternate setting of the DFU interface.
// Bootloaders tell of several memories as alternate settings of one interface, each with a map in
// its string.
struct AlternateSettingOptions {
  u8 number = 0;                         // bAlternateSetting
  std::optional<std::string> mapString;  // instead of the flash's own; empty: has no string
};

// Where many parts have their flash.
inline constexpr u32 DefaultFlashAddress = 0x08000000;

struct KeyboardOptions {
  // Where it is plugged in: part of its instance ids and paths. Two keyboards differ in it.
  std::u16string unit = u"7&1a2b3c4d";
  u16 vendorId = KeyboardVendorId;
  u16 productId = KeyboardProductId;
  u16 dfuProductId = 0x0002;

  // --- Flash, and the firmware that is in it at the start ---
  std::vector<FlashRegion> flash = {
      {DefaultFlashAddress, {{4, 16 * 1024}, {1, 64 * 1024}, {1, 128 * 1024}}}};
  KeyboardVersion version = {1, 0, 2, 1};
  std::vector<ImagePart> firmware = {{DefaultFlashAddress, 96 * 1024}};
  u32 imageAddress = DefaultFlashAddress;  // where the bootloader looks for an image

  // Tells the version of what the flash holds, empty when it cannot be booted; null looks for an
  // image of the simulator's own. For packages that were made elsewhere. It may be called on any
  // thread and calls nothing of the keyboard.
  std::function<std::optional<KeyboardVersion>(const NorFlash&)> findVersion;

  // --- Normal mode ---
  std::vector<HidCollectionOptions> collections = DefaultHidCollections();

  // The order in which its interfaces come one after the other. They are counted from 0: each
  // collection's own, followed by those of the keyboard class that it has. Those left out come
  // last. Empty: all of them are there before the first one is announced.
  std::vector<std::size_t> arrivalOrder;
  u32 arrivalGapMs = 0;  // from one to the next

  u32 refusedReports = 0;  // enter-DFU reports that are refused before one is taken
  u32 detachDelayMs = 30;  // from the report to the keyboard's leaving; 0: before it answers
  u32 restartMs = 1200;    // from its leaving to its return, in either mode
  bool returnsAfterReport = true;

  // --- DFU mode ---
  BootloaderOptions bootloader;
  std::vector<AlternateSettingOptions> alternateSettings = {AlternateSettingOptions{}};
  std::string flashName = "Internal Flash  ";  // in the map strings
  u32 leaveDelayMs = 20;  // from the end of the leave to the device's leaving; 0: before it answers
  u32 silentMs = 0;       // after its return in DFU mode, until it answers
  DWORD dfuOpenError = 0;
  bool dfuInstanceIdReadable = true;
  std::optional<std::u16string> dfuDescription = u"Keyboard firmware update";
  std::optional<std::u16string> dfuPath;  // instead of the usual one
};

}  // namespace simulator
