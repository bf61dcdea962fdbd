// What comes in between while an update runs: arrivals announced twice, the keyboard pulled and
// plugged in again, another keyboard, the end of the service.

#include <unistd.h>

#include <algorithm>
#include <array>

#include "simulator/host_process.h"
#include "tests/support/running_update_test.h"

namespace {

using simulator::KeyboardOptions;
using simulator::VirtualKeyboard;

using OverlapTest = RunningUpdateTest;

class DuplicateArrivalTest : public RunningUpdateTest, public OfTable<Progress> {};

TEST_OF_ROW(DuplicateArrivalTest, ChangesNothing) {
  VirtualKeyboard& keyboard = BeginUpdate();
  PassTimeUntilReached(keyboard, row());
  for (int i = 0; i < 3; ++i) {
    AnnounceAgain();
  }

  ExpectUpdated(keyboard, {"START", "COMPLETE"});
  EXPECT_EQ(CountLines("Keyboard DFU attached\n"), 4u);
  EXPECT_EQ(keyboard.counts().sectorsErased, SectorsToErase);
  EXPECT_EQ(keyboard.counts().blocksWritten, BlocksToWrite);
}

ROWS(DuplicateArrivalTest, ChangesNothing, NameOf,
     {Progress::Erasing, Progress::Erased, Progress::Downloading, Progress::Downloaded});

// The device is still there, and nobody will announce it again.
TEST_F(OverlapTest, DuplicateArrivalIsServedWhenTheOperationFails) {
  VirtualKeyboard& keyboard = BeginUpdate();
  PassTimeUntilReached(keyboard, Progress::Downloading);
  AnnounceAgain();
  PassTime(10);
  keyboard.Intercept([](const WINUSB_SETUP_PACKET& setup, const auto&) {
    return setup.Request == simulator::DfuDnload
               ? std::optional(platform::UsbReply{platform::UsbResult::Stalled, {}, 0})
               : std::nullopt;
  });
  PassTimeUntil("the operation has failed", [this] { return Words().size() == 2; });
  PassTime(1000);
  EXPECT_EQ(CountLines("1 Device(s) found : \n"), 1u) << "the next tick's work";
  keyboard.Intercept(nullptr);
  ExpectUpdated(keyboard, {"START", "DISCONNECT", "COMPLETE"});
}

// The tick sees the failure before anybody is told of the removal that caused it.
TEST_F(OverlapTest, RemovalToldAfterTheTickIsToldToTheUserOnce) {
  VirtualKeyboard& keyboard = BeginUpdate();
  PassTimeUntilReached(keyboard, Progress::Downloading);
  AnnounceAgain();
  PassTime(10);
  machine.notifications.PlanDeliveries([](const platform::Notice& notice) {
    platform::DeliveryPlan delivery;
    delivery.delayMs = notice.action == CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL ? 2900 : 0;
    return delivery;
  });
  keyboard.Detach();
  PassTime(2800);
  ASSERT_EQ(Words(), (Texts{"START", "DISCONNECT"}));
  PassTime(10'000);
  EXPECT_EQ(Words(), (Texts{"START", "DISCONNECT"}));
  keyboard.AttachInDfuMode();
  ExpectUpdated(keyboard, {"START", "DISCONNECT", "COMPLETE"});
}

// With a removal in front it would be a new update's, were there a package for one.
TEST_F(OverlapTest, ArrivalWithoutAPackageEndsNothing) {
  VirtualKeyboard& keyboard = BeginUpdate();
  PassTimeUntilReached(keyboard, Progress::Downloading);
  machine.drive.Remove(std::string(simulator::FileRepository) + simulator::DefaultPackageFolder +
                       "\\" + package.fileName);
  machine.notifications.Announce(
      {CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL, simulator::DfuModeInterfaceGuid, u"the same"});
  AnnounceAgain();
  ExpectUpdated(keyboard, {"START", "COMPLETE"});
}

struct Pull : NamedRow {
  Progress progress;
  u64 forMs;
  Texts words;
  std::function<void(KeyboardOptions&)> change = {};
};

class PullTest : public RunningUpdateTest, public OfTable<Pull> {};

TEST_OF_ROW(PullTest, UpdateGoesOnWhenTheKeyboardIsBack) {
  VirtualKeyboard& keyboard = BeginUpdate();
  PassTimeUntilReached(keyboard, row().progress);
  if (row().change) {
    keyboard.Change(row().change);
    PassTime(3000);
  }
  AttachAgain(keyboard, row().forMs, [](KeyboardOptions& usual) { usual = {}; });
  ExpectUpdated(keyboard, row().words);
}

const Texts Unnoticed = {"START", "COMPLETE"};
const Texts Noticed = {"START", "DISCONNECT", "COMPLETE"};

constexpr u32 HoursMs = 16'000'000;

ROWS(PullTest, UpdateGoesOnWhenTheKeyboardIsBack, NameOfRow,
     {Pull{{"WhileErasing"}, Progress::Erasing, 5000, Noticed},
      Pull{{"WhileErasingForAMoment"}, Progress::Erasing, 100, Unnoticed},
      Pull{{"BetweenEraseAndDownload"}, Progress::Erased, 100, Unnoticed},
      Pull{{"WhileDownloading"}, Progress::Downloading, 5000, Noticed},
      Pull{{"WhileDownloadingForAMoment"}, Progress::Downloading, 100, Noticed},
      Pull{{"WhileDownloadingForAnHour"}, Progress::Downloading, 3'600'000, Noticed},
      Pull{{"BetweenDownloadAndLeave"}, Progress::Downloaded, 100, Unnoticed},
      // The operation's thread sleeps for as long as the device said, and must not be waited for.
      Pull{{"InALongErase"},
           Progress::Erasing,
           2000,
           Unnoticed,
           [](auto& options) { options.bootloader.eraseBaseMs = HoursMs; }},
      Pull{{"InALongWrite"}, Progress::Downloading, 2000, Unnoticed, [](auto& options) {
             options.bootloader.writeMs = HoursMs;
           }}});

// Nothing orders what two threads of the system tell: the removal may come last, with the device
// back. The keyboard ends as it does in the other order.
class RemovalToldLastTest : public RunningUpdateTest, public OfTable<std::tuple<Progress, u64>> {};

TEST_OF_ROW(RemovalToldLastTest, UpdateGoesOnAllTheSame) {
  const Progress progress = std::get<0>(row());
  const u64 delayMs = std::get<1>(row());
  VirtualKeyboard& keyboard = BeginUpdate();
  PassTimeUntilReached(keyboard, progress);
  machine.notifications.PlanDeliveries([delayMs](const platform::Notice& notice) {
    platform::DeliveryPlan delivery;
    if (notice.action == CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL) {
      delivery.delayMs = delayMs;
      delivery.ownThread = true;
    }
    return delivery;
  });
  AttachAgain(keyboard, 1);
  PassTime(60'000);
  EXPECT_EQ(keyboard.runningVersion(), package.version);
  EXPECT_TRUE(keyboard.FlashHolds(package.contents.targets[0].elements));
  EXPECT_EQ(Words().back(), "COMPLETE");
}

ROWS(
    RemovalToldLastTest, UpdateGoesOnAllTheSame,
    [](const auto& row) {
      return std::string(NameOf(std::get<0>(row))) + "Told" + std::to_string(std::get<1>(row)) +
             "MsLater";
    },
    Combine<Progress, u64>({Progress::Erasing, Progress::Erased, Progress::Downloading,
                            Progress::Downloaded},
                           {2, 100, 4000, 9000}));

// An arrival ends the operation that its keyboard's removal left waiting for hours, and then starts
// nothing on that keyboard: without a word it would lie there without firmware.
struct Ending : NamedRow {
  std::function<void(RunningUpdateTest&, VirtualKeyboard& newcomer)> prepare;
  bool newcomerArrives = false;
};

class EndedUpdateTest : public RunningUpdateTest, public OfTable<Ending> {};

TEST_OF_ROW(EndedUpdateTest, IsTold) {
  KeyboardOptions another;
  another.unit = u"8&5e6f7a8b";
  VirtualKeyboard& newcomer = PlugInInDfuMode(another);  // listed in front from now on
  newcomer.Detach();
  VirtualKeyboard& keyboard = BeginUpdate();
  PassTimeUntilReached(keyboard, Progress::Erasing);
  keyboard.Change([](KeyboardOptions& options) { options.bootloader.eraseBaseMs = HoursMs; });
  PassTime(3000);

  keyboard.Detach();
  keyboard.Change([](KeyboardOptions& usual) { usual = {}; });
  PassTime(1000);
  row().prepare(*this, newcomer);
  VirtualKeyboard& arrives = row().newcomerArrives ? newcomer : keyboard;
  arrives.AttachInDfuMode();
  PassTime(1000);
  EXPECT_EQ(Words(), (Texts{"START", "DISCONNECT"}));
  EXPECT_EQ(CountLines("error:: when updating fw\n"), 1u);

  tablet.InstallPackage(package.fileName, package.bytes);
  Texts words = {"START", "DISCONNECT", "COMPLETE"};
  if (row().newcomerArrives) {
    ExpectUpdated(newcomer, words);
    words.push_back("COMPLETE");
  }
  AttachAgain(keyboard, 2000, [](KeyboardOptions& usual) { usual = {}; });
  ExpectUpdated(keyboard, words);
}

ROWS(EndedUpdateTest, IsTold, NameOfRow,
     {Ending{{"WhenTheLaunchCannotOpenTheDevice"},
             [](auto& test, auto&) {
               // The refresh opens it first.
               test.FailCall(platform::Call::CreateFileW, ERROR_ACCESS_DENIED, 2);
             }},
      Ending{{"WhenTheDeviceCannotBeRefreshed"},
             [](auto& test, auto&) {
               test.FailCall(platform::Call::WinUsb_Initialize, ERROR_GEN_FAILURE);
             }},
      Ending{{"WhenThePackageIsGoneBad"}, [](auto& test, auto&) { test.SpoilPackage(); }},
      Ending{{"WhenAnotherKeyboardIsServed"}, [](auto&, auto&) {}, true}});

// Its removal comes before anybody is told of removals, and its operation sleeps for hours.
TEST_F(OverlapTest, KeyboardThatLeftDuringStartUpIsUpdatedWhenItIsBack) {
  KeyboardOptions options;
  options.bootloader.eraseBaseMs = HoursMs;
  VirtualKeyboard& keyboard = PlugIn(options);
  StartService();
  PassTime(25'000);
  AttachAgain(keyboard, 20'000, [](KeyboardOptions& usual) { usual = {}; });
  ExpectUpdated(keyboard, {"START", "COMPLETE"});
}

// The keyboard is pulled while its descriptors are read, for the refresh or for the launch.
class PullWhilePreparingTest : public RunningUpdateTest, public OfTable<u64> {};

TEST_OF_ROW(PullWhilePreparingTest, NextArrivalPreparesAgain) {
  constexpr u8 GetDescriptorRequest = 6;
  constexpr u32 OfTheRefresh = 4;
  VirtualKeyboard& keyboard = BeginUpdate();
  u64 readsLeft = row();
  keyboard.Intercept([&](const WINUSB_SETUP_PACKET& setup, const auto&) {
    if (setup.Request == GetDescriptorRequest && --readsLeft == 0) {
      keyboard.Detach();
    }
    return std::optional<platform::UsbReply>();
  });
  PassTime(10'000);
  Texts words = {"START"};
  if (row() <= OfTheRefresh) {
    words.push_back("DISCONNECT");
  }
  EXPECT_EQ(Words(), words);

  keyboard.Intercept(nullptr);
  AttachAgain(keyboard);
  words.push_back("COMPLETE");
  ExpectUpdated(keyboard, words);
}

ROWS(PullWhilePreparingTest, NextArrivalPreparesAgain, NumberOfRow, UpTo(5));

// A keyboard that comes back in DFU mode although it was told to leave starts all over.
TEST_F(OverlapTest, ArrivalWhileTheLeaveWaitsForItsTick) {
  VirtualKeyboard& keyboard = BeginUpdate();
  PassTimeUntilReached(keyboard, Progress::Told);
  ASSERT_EQ(CountLines("\nSuccessfully left DFU mode!\n"), 0u);
  AttachAgain(keyboard, 1);
  PassTime(10);
  EXPECT_EQ(CountLines("\nSuccessfully left DFU mode!\n"), 1u);
  ExpectUpdated(keyboard, {"START", "COMPLETE", "COMPLETE"});
}

// The file name promises a version that the keyboard does not have afterwards, so that it is
// updated again and again. Nothing of all that may be left.
TEST_F(OverlapTest, PackageForOtherMemoryIsInstalledOverAndOver) {
  simulator::DfuSeFile contents = package.contents;
  contents.targets[0].elements = {{0x20000000, {1, 2, 3}}};
  tablet.InstallPackage(package.fileName, simulator::BuildDfuSe(contents));
  VirtualKeyboard& keyboard = BeginUpdate();
  PassTimeUntil("it has been updated three times",
                [this] { return CountLines("\nSuccessfully left DFU mode!\n") == 3; });
  keyboard.Detach();
  PassTime(20'000);
  Texts words = Words();
  words.resize(6);
  EXPECT_EQ(words, (Texts{"START", "COMPLETE", "START", "COMPLETE", "START", "COMPLETE"}));
  EXPECT_EQ(keyboard.counts().sectorsErased, 0u);
  EXPECT_EQ(keyboard.counts().blocksWritten, 0u);
  EXPECT_EQ(dfuImageRegistry.First(), nullptr);
  EXPECT_EQ(machine.handles.OpenCount(platform::HandleKind::WinUsb), 0u);
}

enum class End { Stopped, Killed };

void PrintTo(End end, std::ostream* out) {
  *out << (end == End::Stopped ? "Stopped" : "Killed");
}

// The service ends in the middle of an update, and starts again. Its first life is a process of its
// own, of which nothing but the keyboard's flash remains.
class SecondLifeTest : public RunningUpdateTest, public OfTable<std::tuple<End, Progress>> {
 protected:
  void EndAt(VirtualKeyboard& keyboard, End end, Progress progress) {
    PassTimeUntilReached(keyboard, progress);
    if (end == End::Killed) {
      machine.KillServiceProcess();
      return;
    }
    machine.services.SendControl(SERVICE_CONTROL_STOP);
    PassTimeUntil(
        "the service has ended", [&] { return machine.processExitCode() == 0; }, 2000);
  }

  // False when something went wrong in the first life.
  bool LiveFirstLife() {
    return simulator::RunInChild([&] {
             VirtualKeyboard& keyboard = BeginUpdate();
             EndAt(keyboard, std::get<End>(row()), std::get<Progress>(row()));
             const simulator::NorFlash memory = keyboard.ReadFlash();
             EXPECT_EQ(memory.bytes().size(), flash.size());
             std::copy_n(memory.bytes().begin(), flash.size(), flash.begin());
             _exit(HasFailure() ? 1 : 0);
           }) == "";
  }

  // What the first life left in the keyboard.
  using FlashBytes = std::array<u8, 256 * 1024>;
  FlashBytes& flash = simulator::MakeShared<FlashBytes>();
};

TEST_OF_ROW(SecondLifeTest, FinishesWhatTheFirstBegan) {
  ASSERT_TRUE(LiveFirstLife());

  auto& keyboard = *new VirtualKeyboard(machine, {});
  simulator::NorFlash memory = keyboard.ReadFlash();
  memory.Overwrite(memory.sectors().front().address, {flash.begin(), flash.end()});
  keyboard.WriteFlash(memory);
  keyboard.Attach();
  EXPECT_EQ(keyboard.mode(), simulator::KeyboardMode::Dfu);
  machine.power.SetBatteryPercent(1);  // does not matter any more
  StartService();
  ExpectUpdated(keyboard, {"COMPLETE"});
}

ROWS(
    SecondLifeTest, FinishesWhatTheFirstBegan,
    [](const auto& row) {
      return testing::PrintToString(std::get<End>(row)) + NameOf(std::get<Progress>(row));
    },
    Combine<End, Progress>({End::Stopped, End::Killed},
                           {Progress::Erasing, Progress::Erased, Progress::Downloading}));

}  // namespace
