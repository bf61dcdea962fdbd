// The bootloader's state machine and commands, as the standard and DfuSe have them.

#include "simulator/dfu_bootloader.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace simulator;
using platform::UsbResult;
using Bytes = std::vector<u8>;

constexpr u32 Start = 0x08000000;
constexpr u32 Used = Start + 0x400;  // a byte is written here
constexpr u32 Protected = Start + 0x800;
constexpr u32 End = Start + 0x1000;

Bytes Command(u8 code, u32 address) {
  return {code, static_cast<u8>(address), static_cast<u8>(address >> 8),
          static_cast<u8>(address >> 16), static_cast<u8>(address >> 24)};
}
Bytes SetAddress(u32 address) {
  return Command(0x21, address);
}
Bytes Erase(u32 address) {
  return Command(0x41, address);
}

class DfuBootloaderTest : public testing::Test {
 protected:
  DfuBootloaderTest() {
    options.transferSize = 64;
    options.eraseBaseMs = 100;
    options.erasePer16KiBMs = 1600;  // 100 ms for a sector of 1 KiB
  }

  platform::UsbReply Send(u8 request, u16 value = 0, const Bytes& data = {}) {
    return bootloader.Request({0x21, request, value, 0, static_cast<USHORT>(data.size())}, data,
                              nowMs);
  }

  // "bStatus bState bwPollTimeout".
  std::string Status() {
    const Bytes told = Send(DfuGetStatus).data;
    return std::to_string(told[0]) + " " + std::to_string(told[4]) + " " +
           std::to_string(told[1] | told[2] << 8 | told[3] << 16);
  }

  // Sends a block, waits until it is done, and returns the status that comes of it.
  u8 Download(u16 block, const Bytes& data) {
    Send(DfuDnload, block, data);
    Send(DfuGetStatus);
    nowMs += 1000;
    return Send(DfuGetStatus).data[0];
  }

  void Enter(u8 state) {
    bootloader.Reset();
    if (state == dfuDNLOADIDLE || state == dfuERROR) {
      Download(0, SetAddress(state == dfuERROR ? End : Start));
    } else if (state != dfuIDLE) {
      const bool leaves = state == dfuMANIFESTSYNC || state == dfuMANIFEST;
      Send(DfuDnload, 0, leaves ? Bytes{} : SetAddress(Start));
      if (state == dfuDNBUSY || state == dfuMANIFEST) {
        Send(DfuGetStatus);
      }
    }
    ASSERT_EQ(bootloader.state(), state);
  }

  BootloaderOptions options;
  NorFlash flash{{{Start, {{2, 0x400, 'g'}, {1, 0x400, 'a'}, {1, 0x400, 'g'}}}}};
  DfuBootloader bootloader{flash, options};
  u64 nowMs = 5000;
};

TEST_F(DfuBootloaderTest, StallsWhatTheStateDoesNotAllow) {
  constexpr u8 Requests[] = {DfuDnload,    DfuDnload,   DfuUpload, DfuGetStatus,
                             DfuClrStatus, DfuGetState, DfuAbort,  DfuDetach};
  constexpr u8 Stall = 0;
  const struct {
    u8 state;
    // The state after each of the requests; the second DNLOAD is without data.
    u8 next[8];
  } cases[] = {
      {dfuIDLE, {3, 6, Stall, 2, Stall, 2, 2, Stall}},
      {dfuDNLOADSYNC, {Stall, Stall, Stall, 4, Stall, 3, 2, Stall}},
      {dfuDNBUSY, {Stall, Stall, Stall, 4, Stall, 4, Stall, Stall}},
      {dfuDNLOADIDLE, {3, 6, Stall, 5, Stall, 5, 2, Stall}},
      {dfuMANIFESTSYNC, {Stall, Stall, Stall, 7, Stall, 6, 2, Stall}},
      {dfuMANIFEST, {Stall, Stall, Stall, 7, Stall, 7, Stall, Stall}},
      {dfuERROR, {Stall, Stall, Stall, 10, 2, 10, Stall, Stall}},
  };
  for (const auto& test : cases) {
    for (int i = 0; i < 8; ++i) {
      SCOPED_TRACE(testing::Message() << "state " << int{test.state} << ", column " << i);
      Enter(test.state);
      const auto reply = Send(Requests[i], 0, i == 0 ? SetAddress(Start) : Bytes{});
      if (test.next[i] != Stall) {
        EXPECT_EQ(reply.result, UsbResult::Done);
        EXPECT_EQ(bootloader.state(), DfuState{test.next[i]});
      } else {
        EXPECT_EQ(reply.result, UsbResult::Stalled);
        EXPECT_EQ(Status(), "15 10 0") << "errSTALLEDPKT in dfuERROR";
      }
    }
  }
}

TEST_F(DfuBootloaderTest, ReportsWhatACommandOrABlockCannotDo) {
  const struct {
    const char* what;
    u32 pointer;
    u16 block;
    Bytes data;
    u8 status;
  } cases[] = {
      {"the last address", Start, 0, SetAddress(End - 1), dfuOK},
      {"an address behind the end", Start, 0, SetAddress(End), errADDRESS},
      {"erase anywhere in a sector", Start, 0, Erase(Used + 0x3FF), dfuOK},
      {"erase everything", Start, 0, {0x41}, dfuOK},
      {"erase behind the end", Start, 0, Erase(End), errADDRESS},
      {"erase what must not be", Start, 0, Erase(Protected), errTARGET},
      {"no known command", Start, 0, Command(0x92, Start), errUNKNOWN},
      {"command too short", Start, 0, {0x21, 0, 0, 0}, errUNKNOWN},
      {"command too long", Start, 0, {0x21, 0, 0, 0, 8, 0}, errUNKNOWN},
      {"block number 1", Start, 1, {0x12}, errUNKNOWN},
      {"largest block", Start, 2, Bytes(64, 0x12), dfuOK},
      {"larger block than that", Start, 2, Bytes(65, 0x12), errSTALLEDPKT},
      {"what the memory holds already", Used, 2, {0xF0}, dfuOK},
      {"into the next sector", Used - 32, 2, Bytes(64, 0x30), dfuOK},
      {"over bytes that were not erased", Used, 2, {0x0F}, errVERIFY},
      {"what must not be written", Protected, 2, {0x12}, errTARGET},
      {"into what must not be written", Protected - 1, 2, Bytes(2, 0x12), errTARGET},
      {"over the end", End - 1, 2, Bytes(2, 0x12), errADDRESS},
      {"last block before the end", End - 640, 11, Bytes(64, 0x12), dfuOK},
      {"first block behind the end", End - 640, 12, {0x12}, errADDRESS},
      {"last block number", Start, 65535, {0x12}, errADDRESS},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    flash.EraseAll();
    flash.Program(Used, {0xF0});
    flash.Program(Protected, {0x34});
    Enter(dfuIDLE);
    ASSERT_EQ(Download(0, SetAddress(test.pointer)), dfuOK);
    const Bytes before = flash.bytes();
    EXPECT_EQ(Download(test.block, test.data), test.status);
    EXPECT_EQ(flash.Read(Protected, 1), Bytes{0x34});
    if (test.status == dfuOK) {
      EXPECT_EQ(bootloader.state(), dfuDNLOADIDLE);
      continue;
    }
    EXPECT_EQ(bootloader.state(), dfuERROR);
    EXPECT_TRUE(flash.bytes() == before || test.status == errVERIFY);
    Send(DfuClrStatus);
    EXPECT_EQ(Status(), "0 2 0");
    EXPECT_EQ(Download(0, SetAddress(Start)), dfuOK) << "and it goes on";
  }
}

TEST_F(DfuBootloaderTest, IsBusyAsLongAsItSaysAndAsOftenAsItShould) {
  options.busyRounds = 2;
  Send(DfuDnload, 0, Erase(Start));
  EXPECT_EQ(Status(), "0 4 200");
  nowMs += 200;
  EXPECT_EQ(Status(), "0 4 200");
  nowMs += 150;
  EXPECT_EQ(Status(), "0 4 50") << "what is left";
  nowMs += 50;
  EXPECT_EQ(Status(), "0 5 0");

  options.setAddressMs = 0;
  Send(DfuDnload, 0, SetAddress(Start));
  EXPECT_EQ(Status(), "0 5 0") << "no time, not busy";
}

TEST_F(DfuBootloaderTest, LosesPowerInTheMidstOfAnEraseOrABlock) {
  const Bytes old(0x400, 0x3C);
  const struct {
    const char* what;
    u16 block;
    Bytes data;
    u32 donePercent;
    u64 afterMs;
    std::size_t doneBytes;  // of what the work covers
  } cases[] = {
      {"half erased", 0, Erase(Start + 1), 50, 199, 0x200},
      {"not erased", 0, Erase(Start), 0, 0, 0},
      {"erased in the last moment", 0, Erase(Start), 50, 200, 0x400},
      {"as good as erased", 0, Erase(Start), 100, 1, 0x400},
      {"half a block", 2, Bytes(64, 0x14), 50, 3, 32},
      {"a whole block", 2, Bytes(64, 0x14), 50, 4, 64},
      {"a quarter of an odd one", 2, Bytes(63, 0x14), 25, 0, 15},
      {"the address set", 0, SetAddress(Used), 0, 0, 0},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    options.donePercentAtPowerLoss = test.donePercent;
    flash.EraseAll();
    flash.Program(Start, old);
    Enter(dfuDNLOADIDLE);
    Send(DfuDnload, test.block, test.data);
    Send(DfuGetStatus);
    nowMs += test.afterMs;
    bootloader.LosePower(nowMs);
    bootloader.Reset();
    bootloader.LosePower(nowMs);  // once more changes nothing

    Bytes expected = old;
    std::fill_n(expected.begin(), test.doneBytes, test.block == 0 ? u8{0xFF} : u8{0x14});
    EXPECT_EQ(flash.Read(Start, old.size()), expected);
  }
}

TEST_F(DfuBootloaderTest, LeavesOnceAndWhenItsKindDoes) {
  for (const bool reports : {true, false}) {
    options.reportsManifestation = reports;
    Enter(dfuMANIFESTSYNC);
    EXPECT_EQ(bootloader.TakeLeave(), !reports) << "on the request";
    EXPECT_EQ(Status(), "0 7 50");
    EXPECT_TRUE(bootloader.TakeLeave()) << "on the status after it";
    EXPECT_FALSE(bootloader.TakeLeave());
  }
}

}  // namespace
