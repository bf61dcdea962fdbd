#include "proof/life.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "platform/machine/machine.h"
#include "simulator/product_memory.h"

namespace proof {

namespace {

// What a life may take to update a keyboard that is plugged in anew, long poll times included.
constexpr u64 UpdateWithinMs = 900'000;

// From the keyboard's return to the end of the session.
constexpr u64 SettleMs = 15'000;

// The start-up sequence's delays, and the time of a decision with an enter-DFU request.
constexpr u64 StartUpMs = 45'000;

constexpr u64 UnpluggedMs = 3'000;

// The seed says who runs next; 0 goes by order. A replay has host threads, for a debugger.
TabletOptions OptionsFor(const TrialPlan& plan, const std::string& driveFolder) {
  TabletOptions options;
  options.scheduler.seed = plan.schedulerSeed;
  options.scheduler.fibers = platform::FibersWork && !plan.parallel && !plan.trace;
  if (plan.parallel) {
    options.scheduler.mode = platform::SchedulerMode::Parallel;
  }
  options.driveFolder = driveFolder;
  return options;
}

// Without firmware: it gets a copy of the first one's, which takes time to make. One that never
// comes needs no flash either.
KeyboardOptions OptionsOfSecond(const TrialPlan& plan) {
  KeyboardOptions options = plan.keyboard;
  options.unit = SecondUnit;
  options.firmware.clear();
  if (!HasSecond(plan)) {
    options.flash.clear();
  }
  return options;
}

// What became of a keyboard, where its firmware was expected.
std::string StateText(const VirtualKeyboard& keyboard) {
  if (const std::optional<KeyboardVersion> version = keyboard.runningVersion()) {
    return "firmware " + VersionText(*version);
  }
  return keyboard.mode() == KeyboardMode::Dfu ? "DFU mode" : "it away";
}

// The bytes of all sectors in a row, as an earlier life left them, over an erased flash.
NorFlash FlashFrom(const std::vector<FlashRegion>& regions, const std::vector<u8>& bytes) {
  NorFlash flash(regions);
  const std::vector<FlashSector> sectors = flash.sectors();
  for (const FlashSector& sector : sectors) {
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(sector.offset);
    flash.Program(sector.address, {begin, begin + static_cast<std::ptrdiff_t>(sector.sizeBytes)});
  }
  return flash;
}

template <std::size_t Bytes>
void Write(const std::string& text, char (&place)[Bytes]) {
  const std::size_t bytes = std::min(text.size(), Bytes - 1);
  std::memcpy(place, text.data(), bytes);
  place[bytes] = '\0';
}

Happening HappeningOf(StageEvent event) {
  switch (event) {
    case StageEvent::UserCame:
      return Happening::UserCame;
    case StageEvent::UserLeft:
      return Happening::UserLeft;
    case StageEvent::StopSent:
      return Happening::StopSent;
    case StageEvent::OpenRefused:
      return Happening::OpenRefused;
    case StageEvent::Ended:
      break;
  }
  return Happening::Ended;
}

// The one of the process, for callbacks that cannot be handed it.
Life* runningLife = nullptr;

}  // namespace

// Most of the page is never touched, and need not be cleared.
void LifePage::Empty() {
  calls = 0;
  lastCall = platform::Call::Count;
  lastCallMs = 0;
  concluded = false;
  processEnded = false;
  for (char* const each : {violationsSoFar, stuck, text}) {
    *each = '\0';
  }
}

Life::Life(const TrialPlan& plan, const std::string& driveFolder, const Carried& carried,
           bool troubled, LifePage& page, std::FILE* trace)
    : plan_(plan),
      page_(page),
      trace_(trace),
      troubled_(troubled),
      tablet_(OptionsFor(plan, driveFolder)),
      keyboard_(*new VirtualKeyboard(tablet_.machine(),
                                     troubled ? plan.keyboard : KeyboardInPeace(plan))),
      foreign_(*new ForeignKeyboard(tablet_.machine(), {})),
      history_(tablet_.machine()),
      stage_{tablet_,
             keyboard_,
             *new VirtualKeyboard(tablet_.machine(), OptionsOfSecond(plan)),
             foreign_,
             deliveries_,
             [this](StageEvent event) { history_.Note(HappeningOf(event)); },
             RefuseMemoryRequest},
      troubles_(stage_, plan.troubles),
      judge_(stage_, history_, plan, keyboard_.ReadFlash()) {
  if (HasSecond(plan)) {
    stage_.second.WriteFlash(keyboard_.ReadFlash());
  }
  if (carried.any) {
    keyboard_.WriteFlash(FlashFrom(plan.keyboard.flash, carried.flash));
  }
  attachInDfu_ = carried.any && carried.mode == KeyboardMode::Dfu;
}

// In every life the troubles end, also in one that has none, and the keyboard gets its chance.
void Life::Run() {
  Watch();
  SetUp();
  if (troubled_) {
    LetTroublesHappen();
  }
  EndTroubles();
  if (!HasEnded()) {
    Recover();
  }
  if (!HasEnded() && stage_.secondCame) {
    RecoverSecond();
  }
  // One that comes late brings a decision, and the life must not be judged in the midst of it.
  PassUntil(troubles_.lastNoticeMs() + SettleMs);
  Conclude();
}

// Asked with the scheduler's lock held, too.
bool Life::HasEnded() {
  return stage_.killed || machine().processExitCode().has_value();
}

bool Life::IsUpdated(const VirtualKeyboard& keyboard) const {
  return keyboard.runningVersion() == plan_.package.version;
}

// Observers are called in the order in which they came: the history has an event before anybody
// acts on it.
void Life::Watch() {
  history_.Watch();
  judge_.Watch([this](const std::vector<std::string>& violations) { KeepViolations(violations); });
  runningLife = this;
  OnMemoryRefused([] { runningLife->SeeRefusedMemory(); });
  calls_ = machine().gate.Observe([this](platform::Call call) {
    ++page_.calls;
    page_.lastCall = call;
    page_.lastCallMs = tablet_.nowMs();
  });
  if (trace_ != nullptr) {
    timeline_ = new Timeline(machine(), trace_, {.wire = true});
    timeline_->WatchMachine();
    callTroubles_ = machine().gate.troubles.Observe([this](const platform::CallTrouble& trouble) {
      timeline_->Write("trouble", std::string("at call ") + std::to_string(trouble.number) + ", " +
                                      platform::NameOf(trouble.call));
    });
  }
  wire_ = machine().transfers.Observe(
      [this](const platform::TransferRecord& record) { SeeTransfer(record); });
  machine().notifications.PlanDeliveries(
      [this](const platform::Notice& notice) { return troubles_.PlanDelivery(notice); });
  machine().scheduler.OnStuck([this](const std::string& why) { EndStuck(why); });
}

void Life::SeeRefusedMemory() {
  history_.Note(Happening::MemoryRefused);
  if (timeline_ != nullptr) {
    timeline_->Write("trouble", "memory refused");
  }
}

void Life::SeeTransfer(const platform::TransferRecord& record) {
  if (record.setup.Request == DfuDnload && record.setup.Value > 1) {
    report_.lastBlockTransfer = machine().transfers.total();
  }
}

// What an earlier life had on the drive goes first. The lists show devices in the order in which
// they came, so the second keyboard may have to come before the first.
void Life::SetUp() {
  std::error_code ignored;
  std::filesystem::remove_all(
      tablet_.driveFolder() + "/Windows/System32/DriverStore/FileRepository", ignored);
  tablet_.InstallPackage(plan_.package.fileName, plan_.package.bytes);
  machine().power.SetBatteryPercent(troubled_ ? plan_.batteryPercent : FullEnoughPercent);
  if (plan_.userLoggedOn || !troubled_) {
    stage_.LogOnUser();
    loggedOn_ = true;
  }
  if (plan_.secondIsListedFirst) {
    // The lists keep the order in which devices came first.
    stage_.second.AttachInDfuMode();
    stage_.second.Detach();
  }
  if (troubled_) {
    troubles_.Arm();
  }
  if (!troubled_ || plan_.attachMs == 0) {
    PlugIn();
  }
  tablet_.StartService();
}

// A keyboard that an earlier life left in DFU mode is still in it.
void Life::PlugIn() {
  if (attachInDfu_) {
    keyboard_.AttachInDfuMode();
  } else {
    keyboard_.Attach();
  }
}

// Returns at once when that time has been, and early when the process has ended.
void Life::PassUntil(u64 timeMs) {
  if (timeMs > tablet_.nowMs()) {
    tablet_.PassTimeUntil([this] { return HasEnded(); }, timeMs - tablet_.nowMs());
  }
}

// The keyboard is plugged in even when nobody is there any more who could see it.
void Life::LetTroublesHappen() {
  for (const Moment& moment : MomentsOf(plan_.troubles, plan_.attachMs)) {
    PassUntil(moment.atMs);
    if (moment.trouble == nullptr) {
      PlugIn();
      continue;
    }
    if (HasEnded()) {
      return;
    }
    if (timeline_ != nullptr) {
      timeline_->Write("trouble", moment.trouble->kind->told);
    }
    troubles_.Happen(*moment.trouble);
  }
  PassUntil(plan_.quietAtMs);
}

// From here on the world is as it should be.
void Life::EndTroubles() {
  if (timeline_ != nullptr) {
    timeline_->Write("trouble", "all of it ends");
  }
  const u64 callFaults = machine().gate.FailedOf();
  if (troubled_ && callFaults != 0) {
    report_.troubles["call failed"] = callFaults;
  }
  report_.troubledCalls = machine().gate.total();
  report_.troubledTransfers = machine().transfers.total();
  report_.troubledMemoryRequests = ProductMemory().requests;
  for (std::size_t i = 0; i < history_.holds(); ++i) {
    troubles_.Count("thread held up");
  }
  if (MemoryWasRefused()) {
    troubles_.Count("memory refused");
  }
  troubles_.End(KeyboardInPeace(plan_));
  if (!loggedOn_) {
    stage_.LogOnUser();
  }
}

// In a life without troubles the new start alone has to do it. Otherwise the keyboard is plugged in
// anew. One that the package is not for only has to be left alone.
void Life::Recover() {
  if (!troubled_) {
    // A new start alone should do.
    tablet_.PassTimeUntil([this] { return IsUpdated() || HasEnded(); }, UpdateWithinMs);
  }
  if (!plan_.expectsUpdate) {
    PassUntil(plan_.quietAtMs + SettleMs);
    return;
  }
  if (!troubled_ && !IsUpdated() && !HasEnded()) {
    judge_.Violate("expected firmware " + VersionText(plan_.package.version) +
                   " in the keyboard after a new start of the service, found " +
                   StateText(keyboard_));
  }
  if (!IsUpdated()) {
    PassUntil(StartUpMs);
    keyboard_.Detach();
    tablet_.PassTime(UnpluggedMs);
    keyboard_.Attach();
    tablet_.PassTimeUntil([this] { return IsUpdated() || HasEnded(); }, UpdateWithinMs);
  }
  if (IsUpdated()) {
    PassUntil(StartUpMs);
    tablet_.PassTime(SettleMs);
  }
}

// Its attachment alone should do, as soon as the first one is served.
void Life::RecoverSecond() {
  if (plan_.expectsUpdate && !IsUpdated()) {
    return;
  }
  stage_.second.AttachInDfuMode();
  tablet_.PassTimeUntil([this] { return IsUpdated(stage_.second) || HasEnded(); }, UpdateWithinMs);
  if (!IsUpdated(stage_.second) && !HasEnded() && !MayNeedNewStart(plan_)) {
    judge_.Violate("expected firmware " + VersionText(plan_.package.version) +
                   " in the second keyboard, which was plugged in anew, found " +
                   StateText(stage_.second));
  }
  tablet_.PassTime(SettleMs);
}

// The judge looks first: what follows here belongs to the report and changes nothing.
void Life::Conclude() {
  report_.updated = IsUpdated();
  report_.keyboard = StateText(keyboard_);
  page_.processEnded = HasEnded();
  // An operation whose thread could not be made holds what it opened until the device's next
  // arrival, which does not come when its work was not needed any more.
  const bool idle = machine().gate.FailedOf(platform::Call::CreateThread) == 0;
  judge_.ConcludeLife(idle && report_.updated && !page_.processEnded);
  page_.mode = keyboard_.mode();
  report_.virtualMs = tablet_.nowMs();
  report_.platformCalls = machine().gate.total();
  CarryFlash();
  report_.violations = judge_.violations();
  for (const ToldWord& told : tablet_.WordsTold()) {
    ++report_.words[told.word];
  }
  for (const auto& [trouble, count] : troubles_.counts()) {
    report_.troubles[trouble] += count;
  }
  Write(ReportText(report_), page_.text);
  page_.concluded = true;
}

// Only a keyboard that is not updated yet has another life before it.
void Life::CarryFlash() {
  if (!report_.updated) {
    const NorFlash flash = keyboard_.ReadFlash();
    page_.flashBytes = std::min(flash.bytes().size(), MostFlashBytes);
    std::memcpy(page_.flash, flash.bytes().data(), page_.flashBytes);
  }
}

void Life::KeepViolations(const std::vector<std::string>& violations) {
  TrialReport soFar;
  soFar.violations = violations;
  Write(ReportText(soFar), page_.violationsSoFar);
}

// No thread can run any more, so neither can this one: says so and ends the process.
void Life::EndStuck(const std::string& why) {
  Write(why.substr(0, why.find('\n')), page_.stuck);
  if (trace_ != nullptr) {
    std::fprintf(trace_, "%s\n", why.c_str());
    std::fflush(trace_);
  }
  _exit(1);
}

}  // namespace proof
