// How a keyboard in DFU mode looks to the machine: a device for WinUSB, and its descriptors.
#pragma once

#include <memory>
#include <optional>

#include "platform/machine/device_tree.h"
#include "simulator/keyboard_options.h"

namespace simulator {

inline constexpr GUID DfuModeInterfaceGuid = {
    0x5CBC7CBE, 0xC056, 0x45BD, {0xB4, 0x22, 0x00, 0x49, 0xD9, 0x4D, 0x11, 0xE9}};

// The device, with its one interface.
platform::Device MakeDfuDevice(const KeyboardOptions& options,
                               std::shared_ptr<platform::UsbBackEnd> backEnd);

// A GET_DESCRIPTOR request. The device has device, configuration and string descriptors; it stalls
// for any other, interface descriptors among them, as devices do.
platform::UsbReply AnswerDescriptor(const KeyboardOptions& options,
                                    const WINUSB_SETUP_PACKET& setup);

// The interface descriptor of the alternate setting with that index; empty when there is none.
std::optional<USB_INTERFACE_DESCRIPTOR> SettingDescriptor(const KeyboardOptions& options,
                                                          std::size_t index);

}  // namespace simulator
