// The account of an update: nothing is left over on the good road, and what the service does not
// need to do shows.

#include "simulator/update_account.h"

#include <atomic>

#include "tests/support/tablet_test.h"

namespace {

using platform::Call;
using simulator::AccountFigures;
using simulator::KeyboardMode;
using simulator::UpdateAccount;

class UpdateAccountTest : public TabletTest {
 protected:
  UpdateAccountTest() { LogOnUser(); }

  // From the keyboard's arrival, or the service's start if it was there before, to its return.
  AccountFigures Follow(u64 attachAtMs) {
    const simulator::Package package = InstallPackage();
    simulator::VirtualKeyboard* keyboard = attachAtMs == 0 ? &PlugIn() : nullptr;
    StartService();
    if (keyboard == nullptr) {
      PassTime(attachAtMs);
      keyboard = &PlugIn();
    }
    while (keyboard->runningVersion() != package.version) {
      const KeyboardMode mode = keyboard->mode();
      PassTimeUntil("the keyboard's next mode", [&] { return keyboard->mode() != mode; });
      account_.NoteMode(keyboard->mode(), nowMs());
    }
    const u64 returnedMs = nowMs();
    const AccountFigures figures = account_.Close(attachAtMs, returnedMs);
    EXPECT_EQ(figures.wireMs + figures.pollMs + figures.awayMs + figures.delayMs + figures.elseMs,
              returnedMs - attachAtMs);
    PassTime(10'000);
    EXPECT_EQ(account_.Close(attachAtMs, returnedMs).delayMs, figures.delayMs);
    return figures;
  }

  // The thread that makes the call for that time stands still first.
  void HoldAt(Call call, u32 occurrence, u64 milliseconds) {
    holding_ = machine.gate.Observe([=, this](Call entered) {
      if (entered == call && ++seen_ == occurrence) {
        machine.scheduler.SleepMs(milliseconds);
      }
    });
  }

 private:
  UpdateAccount& account_ = *new UpdateAccount(machine);
  std::atomic<u32> seen_ = 0;  // threads really run side by side under the thread sanitizer
  platform::Observation holding_;
};

TEST_F(UpdateAccountTest, LeavesNothingOverAtStartUp) {
  const AccountFigures figures = Follow(0);
  EXPECT_EQ(figures.elseMs, 0u);
  EXPECT_GE(figures.delayMs, 15'000u);
  EXPECT_EQ(figures.dataBlockTransfers, 3 * figures.dataBlocks)
      << "the device is busy once a block";
  EXPECT_EQ(figures.deviceOpens, 8u);
  EXPECT_EQ(figures.transfers.at("SET_REPORT"), 1u);
}

TEST_F(UpdateAccountTest, LeavesNothingOverOnArrival) {
  const AccountFigures figures = Follow(40'000);
  EXPECT_EQ(figures.elseMs, 0u);
  EXPECT_LE(figures.delayMs, 9'000u) << "three operations, each looked at by the next tick";
}

TEST_F(UpdateAccountTest, ShowsAStepThatDawdles) {
  HoldAt(Call::WinUsb_ControlTransfer, 30, 500);
  EXPECT_EQ(Follow(0).elseMs, 500u);
}

TEST_F(UpdateAccountTest, ShowsADecisionThatDawdles) {
  HoldAt(Call::HidD_SetOutputReport, 1, 70);
  EXPECT_EQ(Follow(40'000).elseMs, 70u);
}

}  // namespace
