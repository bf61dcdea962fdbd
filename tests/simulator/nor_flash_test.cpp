#include "simulator/nor_flash.h"

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<u8>;

TEST(NorFlashTest, ErasingSetsAllBitsAndProgrammingOnlyClearsThem) {
  simulator::NorFlash flash({{0x1000, {{2, 16, 'g'}, {1, 64, 'a'}}}, {0x2000, {{1, 16, 'g'}}}});
  EXPECT_EQ(flash.bytes(), Bytes(112, 0xFF));
  EXPECT_TRUE(flash.Program(0x1010, {0xF3, 0x00}));
  EXPECT_TRUE(flash.Program(0x1010, {0xF1})) << "needs no bit to be set";
  EXPECT_FALSE(flash.Program(0x1010, {0x3F})) << "needs bits to be set";
  EXPECT_EQ(flash.Read(0x1010, 3), (Bytes{0x31, 0x00, 0xFF})) << "what can be cleared is";

  EXPECT_TRUE(flash.Program(0x100F, {0x55}));
  flash.Erase(*flash.FindSector(0x101F));
  EXPECT_EQ(flash.Read(0x100F, 3), (Bytes{0x55, 0xFF, 0xFF})) << "one sector and no other";

  EXPECT_TRUE(flash.Program(0x1000, Bytes(96, 0)));
  EXPECT_FALSE(flash.Program(0x105F, {0, 0})) << "into the gap";
  EXPECT_FALSE(flash.Read(0x1FFF, 2).has_value()) << "out of the gap";
  EXPECT_EQ(flash.Read(0x2000, 16), Bytes(16, 0xFF));
}

}  // namespace
