// A device's configuration descriptor set: the alternate settings in it and the transfer size.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "dfudevice/configuration_set.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A copy as long as the set, so that a byte beyond it is found.
  const std::unique_ptr<u8[]> set(new u8[size]);
  if (size != 0) {
    std::memcpy(set.get(), data, size);
  }
  if (CountAlternateSettings(set.get(), size) > size) {
    std::abort();
  }
  u16 transferSize = 0;
  FindTransferSize(set.get(), size, transferSize);
  return 0;
}
