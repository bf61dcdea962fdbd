#include "simulator/dfu_descriptors.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "simulator/hid_side.h"
#include "simulator/memory_map.h"

namespace simulator {

using platform::Bytes;
using platform::UsbReply;
using platform::UsbResult;

namespace {

constexpr u8 ManufacturerString = 1;
constexpr u8 ProductString = 2;
constexpr u8 SerialString = 3;
constexpr u8 FirstSettingString = 4;

template <class Record>
void Append(Bytes& bytes, const Record& record) {
  const std::size_t at = bytes.size();
  bytes.resize(at + sizeof(record));
  std::memcpy(&bytes[at], &record, sizeof(record));
}

// In DFU mode it is another device for Windows: the same vendor, another product.
Bytes DeviceDescriptor(const KeyboardOptions& options) {
  USB_DEVICE_DESCRIPTOR device{};
  device.bLength = sizeof(device);
  device.bDescriptorType = USB_DEVICE_DESCRIPTOR_TYPE;
  device.bcdUSB = 0x0200;
  device.bMaxPacketSize0 = 64;
  device.idVendor = options.vendorId;
  device.idProduct = options.dfuProductId;
  device.bcdDevice = 0x0100;
  device.iManufacturer = ManufacturerString;
  device.iProduct = ProductString;
  device.iSerialNumber = SerialString;
  device.bNumConfigurations = 1;
  Bytes bytes;
  Append(bytes, device);
  return bytes;
}

// The functional descriptor stands last, behind the settings' interface descriptors. Its attributes
// are download and detach; there is no upload.
Bytes ConfigurationSet(const KeyboardOptions& options) {
  const std::size_t settings = options.alternateSettings.size();
  const u16 transferSize = options.bootloader.transferSize;
  // Length, type, attributes, detach time-out, transfer size and version, the numbers with their
  // lower byte first.
  const Bytes functional = {9,
                            0x21,
                            0x09,
                            0xFF,
                            0x00,
                            static_cast<u8>(transferSize),
                            static_cast<u8>(transferSize >> 8),
                            0x1A,
                            0x01};
  USB_CONFIGURATION_DESCRIPTOR configuration{};
  configuration.bLength = sizeof(configuration);
  configuration.bDescriptorType = USB_CONFIGURATION_DESCRIPTOR_TYPE;
  configuration.wTotalLength = static_cast<u16>(
      sizeof(configuration) + settings * sizeof(USB_INTERFACE_DESCRIPTOR) + functional.size());
  configuration.bNumInterfaces = 1;
  configuration.bConfigurationValue = 1;
  configuration.bmAttributes = 0x80;
  configuration.MaxPower = 50;

  Bytes bytes;
  Append(bytes, configuration);
  for (std::size_t i = 0; i < settings; ++i) {
    Append(bytes, *SettingDescriptor(options, i));
  }
  bytes.insert(bytes.end(), functional.begin(), functional.end());
  return bytes;
}

// Its length is one byte and its characters take two, so there is an end to what a map can tell.
Bytes StringDescriptor(const std::string& text) {
  const std::size_t chars = std::min(text.size(), LongestStringChars);
  Bytes bytes = {static_cast<u8>(2 + chars * 2), USB_STRING_DESCRIPTOR_TYPE};
  for (std::size_t i = 0; i < chars; ++i) {
    bytes.push_back(static_cast<u8>(text[i]));
    bytes.push_back(0);
  }
  return bytes;
}

// A setting may tell what it likes. What the flash takes shows when it is written.
std::string MapStringOf(const KeyboardOptions& options, std::size_t setting) {
  return options.alternateSettings[setting].mapString.value_or(
      MemoryMapText(options.flashName, options.flash));
}

// String 0 lists the languages; there is English. The others are told whatever language is asked
// for, as small devices do.
UsbReply AnswerString(const KeyboardOptions& options, u8 index) {
  switch (index) {
    case 0:
      return {UsbResult::Done, {4, USB_STRING_DESCRIPTOR_TYPE, 0x09, 0x04}};
    case ManufacturerString:
    case ProductString:
      return {UsbResult::Done, StringDescriptor("Keyboard")};
    case SerialString:
      return {UsbResult::Done, StringDescriptor("0001")};
    default:
      break;
  }
  const std::size_t setting = std::size_t{index} - FirstSettingString;
  if (setting >= options.alternateSettings.size()) {
    return {UsbResult::Stalled, {}};
  }
  return {UsbResult::Done, StringDescriptor(MapStringOf(options, setting))};
}

}  // namespace

// One interface, of the class that the driver package names; all alternate settings are in it.
platform::Device MakeDfuDevice(const KeyboardOptions& options,
                               std::shared_ptr<platform::UsbBackEnd> backEnd) {
  char name[64];
  std::snprintf(name, sizeof(name), "USB\\VID_%04X&PID_%04X\\", options.vendorId,
                options.dfuProductId);
  platform::Device device;
  device.instanceId = Widen(name) + options.unit;
  device.instanceIdReadable = options.dfuInstanceIdReadable;
  device.description = options.dfuDescription;

  platform::DeviceInterface& dfu = device.interfaces.emplace_back();
  dfu.classGuid = DfuModeInterfaceGuid;
  dfu.path = options.dfuPath.value_or(InterfacePath(device.instanceId, dfu.classGuid));
  dfu.openError = options.dfuOpenError;
  // The driver package binds WinUSB to this device, so no driver of Windows' own stands in between.
  dfu.usb = std::move(backEnd);
  return device;
}

UsbReply AnswerDescriptor(const KeyboardOptions& options, const WINUSB_SETUP_PACKET& setup) {
  const u8 type = static_cast<u8>(setup.Value >> 8);
  const u8 index = static_cast<u8>(setup.Value);
  switch (type) {
    case USB_DEVICE_DESCRIPTOR_TYPE:
      return {UsbResult::Done, DeviceDescriptor(options)};
    // All interface descriptors come with their configuration; nobody can ask for one alone.
    case USB_CONFIGURATION_DESCRIPTOR_TYPE:
      return index == 0 ? UsbReply{UsbResult::Done, ConfigurationSet(options)}
                        : UsbReply{UsbResult::Stalled, {}};
    case USB_STRING_DESCRIPTOR_TYPE:
      return AnswerString(options, index);
    default:
      return {UsbResult::Stalled, {}};
  }
}

std::optional<USB_INTERFACE_DESCRIPTOR> SettingDescriptor(const KeyboardOptions& options,
                                                          std::size_t index) {
  if (index >= options.alternateSettings.size()) {
    return std::nullopt;
  }
  USB_INTERFACE_DESCRIPTOR setting{};
  setting.bLength = sizeof(setting);
  setting.bDescriptorType = USB_INTERFACE_DESCRIPTOR_TYPE;
  setting.bAlternateSetting = options.alternateSettings[index].number;
  // Application specific, device firmware upgrade, in DFU mode.
  setting.bInterfaceClass = 0xFE;
  setting.bInterfaceSubClass = 0x01;
  setting.bInterfaceProtocol = 0x02;
  setting.iInterface =
      MapStringOf(options, index).empty() ? u8{0} : static_cast<u8>(FirstSettingString + index);
  return setting;
}

}  // namespace simulator
