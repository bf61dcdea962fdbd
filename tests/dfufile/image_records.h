// Images as tests write them down and compare them: blocks of bytes at addresses.
#pragma once

#include <gtest/gtest.h>

#include <iomanip>
#include <ostream>
#include <vector>

#include "dfufile/dfu_image.h"
#include "dfufile/image_registry.h"
#include "simulator/dfuse_file.h"

using Blocks = std::vector<simulator::DfuSeElement>;

namespace simulator {

inline bool operator==(const DfuSeElement& a, const DfuSeElement& b) {
  return a.address == b.address && a.data == b.data;
}

inline void PrintTo(const DfuSeElement& block, std::ostream* stream) {
  *stream << "0x" << std::hex << block.address << std::dec << ": " << block.data.size() << " bytes";
  if (block.data.size() <= 16) {
    *stream << " " << ::testing::PrintToString(block.data);
  }
}

}  // namespace simulator

// Bytes that tell both where they lie and whose they are.
inline std::vector<u8> PatternAt(u32 address, u32 size, u32 owner = 0) {
  std::vector<u8> bytes(size);
  for (u32 i = 0; i < size; ++i) {
    bytes[i] = static_cast<u8>((address + i) * 5 + ((address + i) >> 8) + owner * 64);
  }
  return bytes;
}

inline void AppendBlocks(DfuImage& image, const Blocks& blocks) {
  for (simulator::DfuSeElement block : blocks) {
    ASSERT_EQ(InsertElement(&image, image.Elements.size(),
                            {block.address, static_cast<u32>(block.data.size()),
                             block.data.empty() ? nullptr : block.data.data()}),
              1);
  }
}

// A registered image; the test releases it.
inline DfuImage* NewRegisteredImage(const Blocks& blocks) {
  DfuImage* image = new DfuImage(0, 0, nullptr);
  AppendBlocks(*image, blocks);
  RegisterImage(&image);
  return image;
}

inline Blocks BlocksOf(const DfuImage& image) {
  Blocks blocks;
  for (u32 i = 0; i < image.Elements.size(); ++i) {
    const DfuElement& element = image.Elements[i];
    blocks.push_back({element.Address, {element.Data, element.Data + element.Size}});
  }
  return blocks;
}

inline std::vector<const DfuImage*> RegisteredImages() {
  std::vector<const DfuImage*> images;
  for (const DfuImage* image = dfuImageRegistry.First(); image != nullptr;
       image = DfuImageRegistry::Next(*image)) {
    images.push_back(image);
  }
  return images;
}
