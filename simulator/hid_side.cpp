#include "simulator/hid_side.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

namespace simulator {

namespace {

std::u16string GuidText(const GUID& guid) {
  char text[40];
  std::snprintf(text, sizeof(text), "{%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}",
                static_cast<unsigned>(guid.Data1), guid.Data2, guid.Data3, guid.Data4[0],
                guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5],
                guid.Data4[6], guid.Data4[7]);
  return Widen(text);
}

// Windows numbers the collections of an interface from 01 and gives each a device of its own; the
// last part tells instances of the same parent apart.
std::u16string HidInstanceId(const HidIdentity& identity, std::size_t index) {
  char device[64];
  char instance[32];
  std::snprintf(device, sizeof(device), "HID\\VID_%04X&PID_%04X&MI_00&Col%02zu\\",
                identity.vendorId, identity.productId, index + 1);
  std::snprintf(instance, sizeof(instance), "&0&%04zx", index);
  return Widen(device) + identity.unit + Widen(instance);
}

}  // namespace

std::u16string Widen(const std::string& text) {
  return {text.begin(), text.end()};
}

// Windows makes the path of an interface from the instance id: in small letters, each backslash a
// "#", and the class behind it. The service gets to see it that way.
std::u16string InterfacePath(const std::u16string& instanceId, const GUID& classGuid) {
  std::u16string path = instanceId;
  std::transform(path.begin(), path.end(), path.begin(), [](char16_t each) {
    if (each == u'\\') {
      return u'#';
    }
    return each >= u'A' && each <= u'Z' ? static_cast<char16_t>(each + 32) : each;
  });
  return u"\\\\?\\" + path + u"#" + GuidText(classGuid);
}

// The service takes the digits from fixed places of this string, counted in characters.
std::u16string ProductStringOf(const KeyboardVersion& version) {
  std::u16string text = u"Keyboard v";
  for (const u8 digit : {version.major, version.minor, version.modelId, version.hwRev}) {
    text += static_cast<char16_t>(u'0' + digit);
    text += u'.';
  }
  text.pop_back();
  return text;
}

std::vector<platform::Device> MakeHidDevices(
    const HidIdentity& identity, const std::vector<HidCollectionOptions>& collections,
    const std::function<std::shared_ptr<platform::HidBackEnd>(std::size_t)>& makeBackEnd) {
  std::vector<platform::Device> devices;
  for (std::size_t i = 0; i < collections.size(); ++i) {
    const HidCollectionOptions& options = collections[i];
    platform::Device& device = devices.emplace_back();
    device.instanceId = HidInstanceId(identity, i);
    device.description = u"HID collection";

    platform::DeviceInterface hid;
    hid.classGuid = platform::HidInterfaceGuid;
    hid.path = InterfacePath(device.instanceId, hid.classGuid);
    hid.openError = options.openError;
    hid.readWriteError = options.readWriteError;
    // What the collection tells of itself comes from its report descriptor. There is no feature
    // report.
    hid.collection = {options.usagePage,
                      options.usage,
                      identity.vendorId,
                      identity.productId,
                      0x0100,
                      options.inputReportBytes,
                      options.outputReportBytes,
                      0};
    hid.hid = makeBackEnd(i);
    device.interfaces.push_back(hid);

    for (u32 n = 0; n < options.keyboardInterfaces; ++n) {
      platform::DeviceInterface keyboard;
      keyboard.classGuid = KeyboardInterfaceGuid;
      keyboard.path = InterfacePath(device.instanceId, keyboard.classGuid);
      // One device has one interface of a class as a rule. More of them need a reference string,
      // which Windows puts behind the path.
      keyboard.path += n == 0 ? u"" : u"\\" + Widen(std::to_string(n));
      device.interfaces.push_back(keyboard);
    }
  }
  return devices;
}

std::vector<std::u16string> HoldBackInterfaces(std::vector<platform::Device>& devices,
                                               const std::vector<std::size_t>& order) {
  std::vector<std::u16string> counted;
  for (platform::Device& device : devices) {
    for (platform::DeviceInterface& each : device.interfaces) {
      // Windows registers an interface before it enables it, and tells nobody in between.
      each.enabled = false;
      counted.push_back(each.path);
    }
  }
  std::vector<std::u16string> ordered;
  for (const std::size_t index : order) {
    if (index < counted.size() && !counted[index].empty()) {
      ordered.push_back(std::exchange(counted[index], {}));
    }
  }
  std::copy_if(counted.begin(), counted.end(), std::back_inserter(ordered),
               [](const std::u16string& path) { return !path.empty(); });
  return ordered;
}

}  // namespace simulator
