#include "simulator/number_text.h"

#include <cstdio>

namespace simulator {

std::string AddressText(u32 address) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08X", address);
  return text;
}

// People read byte counts of six digits more easily in groups.
std::string CountText(u64 count) {
  std::string text = std::to_string(count);
  for (std::size_t at = text.size(); at > 3; at -= 3) {
    text.insert(at - 3, 1, ',');
  }
  return text;
}

}  // namespace simulator
