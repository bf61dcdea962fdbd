// What each kind of trouble does, and the table of them all.
#include "simulator/trouble.h"

#include "platform/machine/machine.h"
#include "simulator/dfu_descriptors.h"
#include "simulator/dfu_names.h"
#include "simulator/foreign_keyboard.h"
#include "simulator/stage.h"
#include "simulator/tablet.h"
#include "simulator/virtual_keyboard.h"

namespace simulator {

namespace {

constexpr u64 MostMs = 0xFFFFFF;  // the longest that the protocol can tell
constexpr u64 MostNotices = 1000;
constexpr u64 MostByte = 255;
constexpr char AwayMs[] = "for how many milliseconds";
constexpr char HowMany[] = "how many";

u32 First(const Trouble& trouble) {
  return static_cast<u32>(trouble.numbers[0]);
}

// --- At a time ---

void Unplug(Stage& stage, const Trouble& trouble) {
  if (trouble.numbers[1] != 0) {
    stage.deliveries.apart = static_cast<u32>(trouble.numbers[1]);
  }
  stage.keyboard.PullFor(trouble.numbers[0], stage.keyboard.mode() == KeyboardMode::Dfu);
}

void DropArrivals(Stage& stage, const Trouble& trouble) {
  stage.deliveries.drop = First(trouble);
}

void DoubleNotices(Stage& stage, const Trouble& trouble) {
  stage.deliveries.twice = First(trouble);
}

void DelayNotices(Stage& stage, const Trouble& trouble) {
  stage.deliveries.delayMs = First(trouble);
}

void TellNoticesApart(Stage& stage, const Trouble& trouble) {
  stage.deliveries.apart = First(trouble);
}

// The report was taken and the keyboard left; the user unplugged it just then, or its bootloader is
// broken.
void KeepKeyboardAway(Stage& stage, const Trouble&) {
  stage.keyboard.Change([](KeyboardOptions& options) { options.returnsAfterReport = false; });
}

void SlowKeyboardDown(Stage& stage, const Trouble& trouble) {
  stage.keyboard.Change([&](KeyboardOptions& options) { options.silentMs = First(trouble); });
}

// As when another program holds the device.
void RefuseOpens(Stage& stage, const Trouble&) {
  stage.RefuseOpens();
}

void AttachForeign(Stage& stage, const Trouble&) {
  stage.foreign.Attach();
}

void AttachSecond(Stage& stage, const Trouble&) {
  stage.AttachSecond();
}

void PauseService(Stage& stage, const Trouble&) {
  stage.machine().services.SendControl(SERVICE_CONTROL_PAUSE);
}

void SendOtherControl(Stage& stage, const Trouble& trouble) {
  stage.machine().services.SendControl(First(trouble));
}

void StopService(Stage& stage, const Trouble&) {
  stage.StopService();
}

void LogUserOff(Stage& stage, const Trouble&) {
  stage.LogOffUser();
}

void ChangeCharge(Stage& stage, const Trouble& trouble) {
  stage.machine().power.SetBatteryPercent(static_cast<u8>(trouble.numbers[0]));
}

// The next answer to GETSTATUS, whatever the device was about to say.
void ReportError(Stage& stage, const Trouble& trouble) {
  stage.keyboard.ScriptStatus(
      {static_cast<u8>(trouble.numbers[0]), 0, static_cast<u8>(trouble.numbers[1])});
}

// Only says so; the work is done as ever.
void SayBusy(Stage& stage, const Trouble& trouble) {
  stage.keyboard.ScriptStatus({dfuOK, First(trouble), dfuDNBUSY});
}

void BeBusy(Stage& stage, const Trouble& trouble) {
  stage.keyboard.Change([&](KeyboardOptions& options) {
    options.bootloader.eraseBaseMs = First(trouble);
    options.bootloader.writeMs = First(trouble);
  });
}

// The device is there and stalls nothing: a host sees a transfer run into its time-out.
void AnswerNothing(Stage& stage, const Trouble&) {
  stage.keyboard.Intercept([](const WINUSB_SETUP_PACKET&, const platform::Bytes&) {
    return platform::UsbReply{platform::UsbResult::TimedOut, {}, 0};
  });
}

// --- In front of a transfer or a call ---

// Windows announces a device once, but drivers that restart their device make it do so again.
void AnnounceAgain(Stage& stage, const Trouble&) {
  stage.machine().notifications.Announce(
      {CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, DfuModeInterfaceGuid, u"once more"});
}

// As the task manager does: no handler runs, nothing is closed, and the keyboard is left as it is.
void KillService(Stage& stage, const Trouble&) {
  stage.killed = true;
  stage.note(StageEvent::Ended);
  stage.machine().KillServiceProcess();
}

// --- At a place in the keyboard's own work ---

DeviceFault FaultFrom(const Trouble& trouble) {
  DeviceFault fault;
  fault.atErase = trouble.kind->place == FaultPlace::Erase;
  fault.number = trouble.at;
  return fault;
}

void PullAtWork(Stage& stage, const Trouble& trouble) {
  DeviceFault fault = FaultFrom(trouble);
  fault.isPulled = true;
  fault.milliseconds = First(trouble);
  stage.keyboard.AddFault(fault);
}

void StallWork(Stage& stage, const Trouble& trouble) {
  DeviceFault fault = FaultFrom(trouble);
  fault.stalls = true;
  stage.keyboard.AddFault(fault);
}

void SpoilWork(Stage& stage, const Trouble& trouble) {
  DeviceFault fault = FaultFrom(trouble);
  fault.status = static_cast<u8>(trouble.numbers[0]);
  stage.keyboard.AddFault(fault);
}

void DrawOutWork(Stage& stage, const Trouble& trouble) {
  DeviceFault fault = FaultFrom(trouble);
  fault.milliseconds = First(trouble);
  stage.keyboard.AddFault(fault);
}

// It leaves as it was asked, and the machine never sees its DFU device.
void LeaveForGood(Stage& stage, const Trouble& trouble) {
  KeepKeyboardAway(stage, trouble);
}

// The device is there, but its bootloader takes a while before it answers requests.
void ReturnSlowly(Stage& stage, const Trouble& trouble) {
  SlowKeyboardDown(stage, trouble);
}

// --- Orders to the machine ---

void FailCall(Stage& stage, const Trouble& trouble) {
  stage.machine().gate.FailNumber(trouble.at, First(trouble), trouble.numbers[1] != 0);
}

void HoldCall(Stage& stage, const Trouble& trouble) {
  stage.machine().gate.HoldNumber(trouble.at, trouble.numbers[0]);
}

void RefuseMemory(Stage& stage, const Trouble& trouble) {
  stage.refuseMemory(trouble.at);
}

using enum FaultPlace;

constexpr char Status[] = "which status, as in error:errWRITE";
// Longer than any sector takes to erase.
constexpr u64 LongMs = 20'000;

constexpr TroubleKind::Traits ForBench = {.isOrder = true, .isForBench = true};
constexpr TroubleKind::Traits StatusForBench = {
    .isOrder = true, .namesStatus = true, .isForBench = true};

constexpr TroubleKind Kinds[] = {
    {"unplug", Time, "keyboard pulled", 1, AwayMs, MostMs, Unplug, {.usual = MostMs}},
    {"drop", Time, "arrivals to be dropped", 1, HowMany, MostNotices, DropArrivals},
    {"double", Time, "notices to come twice", 1, HowMany, MostNotices, DoubleNotices},
    {"late", Time, "notices to come late", 1, AwayMs, MostMs, DelayNotices},
    {"apart", Time, "notices to come apart", 1, HowMany, MostNotices, TellNoticesApart},
    {"no-return", Time, "keyboard not to return", 0, "", 0, KeepKeyboardAway},
    {"slow", Time, "keyboard slow to answer", 1, AwayMs, MostMs, SlowKeyboardDown},
    {"no-open", Time, "DFU device not to be opened", 0, "", 0, RefuseOpens},
    {"foreign", Time, "foreign keyboard attached", 0, "", 0, AttachForeign},
    {"second", Time, "second keyboard attached", 0, "", 0, AttachSecond},
    {"pause", Time, "service paused", 0, "", 0, PauseService},
    {"control", Time, "other control sent", 1, "which", MostByte, SendOtherControl},
    {"stop", Time, "service stopped", 0, "", 0, StopService},
    {"log-off", Time, "user logged off", 0, "", 0, LogUserOff},
    {"battery", Time, "battery changed", 1, "the charge in percent", MostByte, ChangeCharge},
    {"error", Time, "device reports an error", 2, "bStatus and bState", MostByte, ReportError},
    {"say-busy", Time, "device says that it is busy for long", 1, AwayMs, MostMs, SayBusy},
    {"busy", Time, "device busy for long", 1, AwayMs, MostMs, BeBusy},
    {"silent", Time, "device answers nothing", 0, "", 0, AnswerNothing},
    {"unplug",
     Transfer,
     "pulled at a transfer",
     2,
     "for how many milliseconds, and how many notices come apart then",
     MostMs,
     Unplug,
     {.usual = MostMs}},
    {"second", Transfer, "second keyboard attached", 0, "", 0, AttachSecond},
    {"announce", Transfer, "announced again", 0, "", 0, AnnounceAgain, {.needsDfuMode = true}},
    {"kill", Call, "killed at a call", 0, "", 0, KillService},
    {"fail",
     Call,
     "call failed",
     2,
     "which documented error, and 1 for all calls from then on",
     MostByte,
     FailCall,
     {.isOrder = true, .isSingle = true, .mayNeedNewStart = true}},
    {"hold", Call, "thread held up", 1, AwayMs, MostMs, HoldCall, {.isOrder = true}},
    {"refuse",
     Request,
     "memory refused",
     0,
     "",
     0,
     RefuseMemory,
     {.isOrder = true, .isSingle = true, .mayNeedNewStart = true}},
    {"unplug",
     Block,
     "pulled at a block",
     1,
     AwayMs,
     MostMs,
     PullAtWork,
     {.isOrder = true, .usual = MostMs, .isForBench = true}},
    {"stall", Block, "block refused", 0, "", 0, StallWork, ForBench},
    {"error", Block, "block goes wrong", 1, Status, MostByte, SpoilWork, StatusForBench},
    {"busy",
     Block,
     "busy with a block",
     1,
     AwayMs,
     MostMs,
     DrawOutWork,
     {.isOrder = true, .usual = LongMs, .isForBench = true}},
    {"unplug",
     Erase,
     "pulled at an erase",
     1,
     AwayMs,
     MostMs,
     PullAtWork,
     {.isOrder = true, .usual = MostMs, .isForBench = true}},
    {"stall", Erase, "erase refused", 0, "", 0, StallWork, ForBench},
    {"error", Erase, "erase goes wrong", 1, Status, MostByte, SpoilWork, StatusForBench},
    {"busy",
     Erase,
     "busy with an erase",
     1,
     AwayMs,
     MostMs,
     DrawOutWork,
     {.isOrder = true, .usual = LongMs, .isForBench = true}},
    {"gone", Report, "keyboard not to return", 0, "", 0, LeaveForGood, ForBench},
    {"slow",
     Return,
     "DFU device silent at first",
     1,
     AwayMs,
     MostMs,
     ReturnSlowly,
     {.isOrder = true, .usual = 3000, .isForBench = true}},
};

}  // namespace

std::span<const TroubleKind> TroubleKinds() {
  return Kinds;
}

}  // namespace simulator
