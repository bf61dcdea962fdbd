// How a keyboard in normal mode looks to the machine: a device for each HID collection, some with
// interfaces of the keyboard class as well.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/machine/device_tree.h"
#include "simulator/keyboard_options.h"

namespace simulator {

// The class that Windows gives to devices with keys; the service asks to be told of its arrivals.
inline constexpr GUID KeyboardInterfaceGuid = {
    0x884B96C3, 0x56EF, 0x11D1, {0xBC, 0x8C, 0x00, 0xA0, 0xC9, 0x14, 0x05, 0xDD}};

// The path of an interface as Windows makes it from the instance id and the class.
std::u16string InterfacePath(const std::u16string& instanceId, const GUID& classGuid);

// Text of a few characters of ASCII as UTF-16.
std::u16string Widen(const std::string& text);

// The product string of firmware of that version.
std::u16string ProductStringOf(const KeyboardVersion& version);

// What the paths of a keyboard's collections have in common.
struct HidIdentity {
  u16 vendorId = 0;
  u16 productId = 0;
  std::u16string unit;
};

// makeBackEnd gives the back-end for the collection with that index.
std::vector<platform::Device> MakeHidDevices(
    const HidIdentity& identity, const std::vector<HidCollectionOptions>& collections,
    const std::function<std::shared_ptr<platform::HidBackEnd>(std::size_t)>& makeBackEnd);

// Makes the interfaces of the devices wait to be enabled. Their paths, in the order in which they
// are to come (see KeyboardOptions::arrivalOrder).
std::vector<std::u16string> HoldBackInterfaces(std::vector<platform::Device>& devices,
                                               const std::vector<std::size_t>& order);

}  // namespace simulator
