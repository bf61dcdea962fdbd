// Another maker's keyboard: it has HID collections and a keyboard interface like ours, and must be
// left alone. Any thread; never destroyed while the machine is on.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "simulator/keyboard_options.h"

namespace platform {
class Machine;
}

namespace simulator {

// Another maker's keyboard at the same tablet, which must be left alone. Its collections are those
// of ours and its ids are not: a service that went by usage pages alone would take it for its own.
struct ForeignKeyboardOptions {
  // The part of the instance ids by which Windows tells apart devices with the same ids at
  // different places. It is another one than that of our keyboards.
  std::u16string unit = u"8&2b3c4d5e";
  u16 vendorId = 0x1234;
  u16 productId = 0x5678;

  // Ends in four numbers with points between them, as the string of our keyboard does.
  std::u16string productString = u"Other keys 9.9.2.1";
  std::vector<HidCollectionOptions> collections = DefaultHidCollections();
};

// One keyboard of that kind, which has firmware of its own and no DFU mode.
class ForeignKeyboard {
 public:
  ForeignKeyboard(platform::Machine& machine, const ForeignKeyboardOptions& options)
      : machine_(machine), options_(options) {}
  ForeignKeyboard(const ForeignKeyboard&) = delete;
  ForeignKeyboard& operator=(const ForeignKeyboard&) = delete;

  // Plugs it in and pulls it. The machine announces its interfaces like any others, so the
  // service is told of keys that are not its business.
  void Attach();
  void Detach();

  // Output reports that came; it takes them all. Any number but 0 is a mistake of the service.
  u32 reports() const { return reports_; }

 private:
  class Collection;

  platform::Machine& machine_;
  const ForeignKeyboardOptions options_;
  // The instance ids of its devices while it is plugged in. The script's thread only.
  std::vector<std::u16string> attached_;
  std::atomic<u32> reports_ = 0;
};

}  // namespace simulator
