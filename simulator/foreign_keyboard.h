// Another maker's keyboard: it has HID collections and a keyboard interface like ours, and must be
// left alone. Any thread; never destroyed while the machine is on.
#pragma once

#include <atomic>

#include "platform/machine/machine.h"
#include "simulator/keyboard_options.h"

namespace simulator {

// Another maker's keyboard at the same tablet, which must be left alone.
struct ForeignKeyboardOptions {
  std::u16string unit = u"8&2b3c4d5e";
  u16 vendorId = 0x1234;
  u16 productId = 0x5678;
  std::u16string productString = u"Other keys 9.9.2.1";
  std::vector<HidCollectionOptions> collections = DefaultHidCollections();
};

class ForeignKeyboard {
 public:
  ForeignKeyboard(platform::Machine& machine, const ForeignKeyboardOptions& options)
      : machine_(machine), options_(options) {}
  ForeignKeyboard(const ForeignKeyboard&) = delete;
  ForeignKeyboard& operator=(const ForeignKeyboard&) = delete;

  void Attach();
  void Detach();

  // Output reports that came; it takes them all.
  u32 reports() const { return reports_; }

 private:
  class Collection;

  platform::Machine& machine_;
  const ForeignKeyboardOptions options_;
  std::vector<std::u16string> attached_;  // the script's thread only
  std::atomic<u32> reports_ = 0;
};

}  // namespace simulator
