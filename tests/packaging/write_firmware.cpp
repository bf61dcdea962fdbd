// write_firmware FILE PRODUCT_ID: a small sound DfuSe file whose suffix names that USB product.
#include <cstdio>
#include <cstdlib>

#include "simulator/dfuse_file.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    return 2;
  }
  simulator::DfuSeFile file;
  file.productId = static_cast<u16>(std::strtoul(argv[2], nullptr, 0));
  file.targets.resize(1);
  file.targets[0].elements.push_back({0x08000000, std::vector<u8>(64, 0x5A)});
  const std::vector<u8> bytes = simulator::BuildDfuSe(file);

  std::FILE* const stream = std::fopen(argv[1], "wb");
  if (stream == nullptr) {
    return 1;
  }
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size();
  return std::fclose(stream) == 0 && written ? 0 : 1;
}
