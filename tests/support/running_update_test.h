// The fixture of the tests that disturb an update: the service runs, and a keyboard with older
// firmware that is plugged in starts it. The places where the disturbance comes have names.
#pragma once

#include <string>
#include <vector>

#include "dfudevice/memory_map.h"
#include "dfufile/image_registry.h"
#include "simulator/dfu_descriptors.h"
#include "simulator/product_memory.h"
#include "tests/support/table.h"
#include "tests/support/tablet_test.h"

using Texts = std::vector<std::string>;

// How far an update has come.
enum class Progress { Erasing, Erased, Downloading, Downloaded, Told };

inline const char* NameOf(Progress progress) {
  static constexpr const char* Names[] = {"Erasing", "Erased", "Downloading", "Downloaded", "Told"};
  return Names[static_cast<int>(progress)];
}

inline void PrintTo(Progress progress, std::ostream* out) {
  *out << NameOf(progress);
}

class RunningUpdateTest : public TabletTest {
 public:
  // So much the usual package makes of an undisturbed update of the usual keyboard.
  static constexpr u32 SectorsToErase = 5;
  static constexpr u32 BlocksToWrite = 128;

  RunningUpdateTest() : package(InstallPackage()) { LogOnUser(); }

  simulator::VirtualKeyboard& BeginUpdate(const simulator::KeyboardOptions& options = {}) {
    StartService();
    PassTime(60'000);
    return PlugIn(options);
  }

  // Erased and Downloaded are the times when the operation has ended and the tick is still to come,
  // Told is that of the leave.
  void PassTimeUntilReached(const simulator::VirtualKeyboard& keyboard, Progress progress) {
    PassTimeUntil(NameOf(progress), [&] {
      const u64 operationsEnded = machine.gate.CountOf(platform::Call::ExitThread);
      switch (progress) {
        case Progress::Erasing:
          return keyboard.counts().sectorsErased >= 2;
        case Progress::Erased:
          return operationsEnded >= 1;
        case Progress::Downloading:
          return keyboard.counts().blocksWritten >= 40;
        case Progress::Downloaded:
          return operationsEnded >= 2;
        default:
          return operationsEnded >= 3;
      }
    });
  }

  // Pulls the keyboard, changes what the test wants changed, and plugs it in again in DFU mode.
  void AttachAgain(simulator::VirtualKeyboard& keyboard, u64 afterMs = 2000,
                   const std::function<void(simulator::KeyboardOptions&)>& change = {}) {
    keyboard.Detach();
    if (change) {
      keyboard.Change(change);
    }
    PassTime(afterMs);
    keyboard.AttachInDfuMode();
  }

  // Tells the service of the DFU device as if it had just arrived.
  void AnnounceAgain() {
    machine.notifications.Announce(
        {CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, simulator::DfuModeInterfaceGuid, u"the same"});
  }

  // Waits for the end of the update, and looks at all that it left behind.
  void ExpectUpdated(const simulator::VirtualKeyboard& keyboard, const Texts& words) {
    PassTimeUntil("the keyboard runs the package's firmware",
                  [&] { return keyboard.runningVersion() == package.version; });
    PassTime(10'000);
    EXPECT_TRUE(keyboard.FlashHolds(package.contents.targets[0].elements));
    EXPECT_EQ(keyboard.strayDfuRequests(), 0u);
    EXPECT_EQ(Words(), words);
    EXPECT_EQ(dfuImageRegistry.First(), nullptr);
    // The table of the last refresh and the sectors of each of its maps stay.
    EXPECT_EQ(simulator::ProductMemory().blocks, 1 + memoryMapTable.mapCount);
  }

  // In the package's place stands a file that is none.
  void SpoilPackage() { tablet.InstallPackage(package.fileName, {}); }

  using TabletTest::FailCall;
  using TabletTest::PassTime;
  using TabletTest::PassTimeUntil;

  const simulator::Package package;
};
