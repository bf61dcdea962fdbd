// Each way in which an update can end with "DISCONNECT". The user hears it once, nothing stays
// open, and the next attachment brings the keyboard its firmware.

#include "tests/support/running_update_test.h"

namespace {

using platform::Bytes;
using platform::UsbReply;
using platform::UsbResult;
using simulator::DfuDnload;
using simulator::DfuGetStatus;
using simulator::KeyboardOptions;
using simulator::VirtualKeyboard;

struct Way : NamedRow {
  std::function<void(KeyboardOptions&)> change = {};
  std::function<void(RunningUpdateTest&, VirtualKeyboard&)> disturb = {};
  Texts words = {"START", "DISCONNECT"};
};

// The device answers the request with this whenever it has written that many blocks.
auto Answer(u8 request, u32 blocksWritten, const UsbReply& reply) {
  return [=](RunningUpdateTest&, VirtualKeyboard& keyboard) {
    keyboard.Intercept([=, &keyboard](const WINUSB_SETUP_PACKET& setup, const Bytes&) {
      const bool isMeant =
          setup.Request == request && keyboard.counts().blocksWritten == blocksWritten;
      return isMeant ? std::optional(reply) : std::nullopt;
    });
  };
}

// Every request runs into its time-out, the last ABORT as well: a tick sees the failure before the
// operation has ended.
auto AnswerNothing(u32 blocksWritten) {
  return [=](RunningUpdateTest&, VirtualKeyboard& keyboard) {
    keyboard.Intercept([=, &keyboard](const WINUSB_SETUP_PACKET&, const Bytes&) {
      const bool isMeant = keyboard.counts().blocksWritten == blocksWritten;
      return isMeant ? std::optional(UsbReply{UsbResult::TimedOut, {}, 0}) : std::nullopt;
    });
  };
}

auto PullWhen(Progress progress) {
  return [=](RunningUpdateTest& test, VirtualKeyboard& keyboard) {
    test.PassTimeUntilReached(keyboard, progress);
    keyboard.Detach();
  };
}

// The service opens the device eight times in an update; the time with this number fails.
auto FailOpening(u32 number) {
  return [=](RunningUpdateTest& test, VirtualKeyboard&) {
    test.FailCall(platform::Call::WinUsb_Initialize, ERROR_NOT_ENOUGH_MEMORY, number);
  };
}

class DisconnectTest : public RunningUpdateTest, public OfTable<Way> {};

TEST_OF_ROW(DisconnectTest, IsToldOnceAndTheNextAttachmentUpdates) {
  KeyboardOptions options;
  if (row().change) {
    row().change(options);
  }
  VirtualKeyboard& keyboard = BeginUpdate(options);
  if (row().disturb) {
    row().disturb(*this, keyboard);
  }
  PassTime(60'000);
  Texts words = row().words;
  EXPECT_EQ(Words(), words);
  EXPECT_EQ(CountLines("\nSuccessfully left DFU mode!\n"), 0u);
  EXPECT_EQ(machine.handles.OpenCount(platform::HandleKind::WinUsb), 0u);

  keyboard.Intercept(nullptr);
  AttachAgain(keyboard, 2000, [](KeyboardOptions& usual) { usual = {}; });
  words.push_back("COMPLETE");
  ExpectUpdated(keyboard, words);
}

ROWS(DisconnectTest, IsToldOnceAndTheNextAttachmentUpdates, NameOfRow,
     {Way{{"BothReportsAreRefused"}, [](auto& options) { options.refusedReports = 2; }},
      Way{{"InterfaceCannotBeOpened"},
          [](auto& options) { options.dfuOpenError = ERROR_ACCESS_DENIED; }},
      Way{{"MemoryMapIsNone"}, [](auto& options) { options.alternateSettings[0].mapString = "?"; }},
      Way{{"EraseIsRefused"}, {}, Answer(DfuDnload, 0, {UsbResult::Stalled, {}, 0})},
      Way{{"BlockIsRefused"}, {}, Answer(DfuDnload, 5, {UsbResult::Stalled, {}, 0})},
      Way{{"DeviceFallsSilent"}, {}, Answer(DfuGetStatus, 5, {UsbResult::TimedOut, {}, 0})},
      Way{{"DeviceAnswersNothing"}, {}, AnswerNothing(5)},
      Way{{"WriteFails"}, {}, Answer(DfuGetStatus, 5, {UsbResult::Done, {3, 0, 0, 0, 5, 0}, 0})},
      Way{{"PulledWhileErasing"}, {}, PullWhen(Progress::Erasing)},
      Way{{"PulledBetweenEraseAndDownload"}, {}, PullWhen(Progress::Erased)},
      Way{{"PulledWhileDownloading"}, {}, PullWhen(Progress::Downloading)},
      Way{{"PulledBetweenDownloadAndLeave"}, {}, PullWhen(Progress::Downloaded)},
      Way{{"RefreshCannotOpen"}, {}, FailOpening(1)},
      // Of this one the user hears nothing.
      Way{{"EraseIsNotLaunched"}, {}, FailOpening(2), {"START"}},
      Way{{"EraseCannotOpen"}, {}, FailOpening(3)},
      Way{{"DownloadIsNotLaunched"}, {}, FailOpening(4)},
      Way{{"DownloadCannotOpen"}, {}, FailOpening(5)},
      Way{{"RefreshBeforeTheLeaveCannotOpen"}, {}, FailOpening(6)},
      Way{{"LeaveIsNotLaunched"}, {}, FailOpening(7)},
      Way{{"LeaveCannotOpen"}, {}, FailOpening(8)}});

}  // namespace
