#include "simulator/foreign_keyboard.h"

#include <memory>
#include <utility>

#include "platform/machine/machine.h"
#include "simulator/hid_side.h"

namespace simulator {

// It takes every report and does nothing about it, as a device does with reports that it does not
// know. What counts is whether any came: the service must ask no keyboard but its own.
class ForeignKeyboard::Collection : public platform::HidBackEnd {
 public:
  explicit Collection(ForeignKeyboard& keyboard) : keyboard_(keyboard) {}

  bool ReadProductString(std::u16string& text) override {
    text = keyboard_.options_.productString;
    return true;
  }
  // Counted, because a report to it is a mistake of the service whatever is in it.
  bool TakeOutputReport(const platform::Bytes&) override {
    ++keyboard_.reports_;
    return true;
  }

 private:
  ForeignKeyboard& keyboard_;
};

// Another maker's ids, so the paths do not carry those that the service looks for.
void ForeignKeyboard::Attach() {
  const std::vector<platform::Device> devices =
      MakeHidDevices({options_.vendorId, options_.productId, options_.unit}, options_.collections,
                     [this](std::size_t) { return std::make_shared<Collection>(*this); });
  for (const platform::Device& device : devices) {
    attached_.push_back(device.instanceId);
  }
  machine_.devices.Attach(devices);
}

void ForeignKeyboard::Detach() {
  machine_.devices.Detach(std::exchange(attached_, {}));
}

}  // namespace simulator
