#include "simulator/soak/trial.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "simulator/dfu_descriptors.h"
#include "simulator/soak/judge.h"
#include "simulator/soak/product_memory.h"
#include "simulator/timeline.h"

namespace simulator {

namespace {

// What a life may take to update a keyboard that is plugged in anew, long poll times included.
constexpr u64 UpdateWithinMs = 900'000;

// From the keyboard's return to the end of the session.
constexpr u64 SettleMs = 15'000;

// The start-up sequence's delays, and the time of a decision with an enter-DFU request.
constexpr u64 StartUpMs = 45'000;

constexpr u64 UnpluggedMs = 3'000;
constexpr u32 MostLives = 4;
constexpr std::size_t ReportBytes = 1 << 16;
constexpr std::size_t MostFlashBytes = 4 << 20;

// What goes from one life to the next.
struct Carried {
  bool any = false;
  KeyboardMode mode = KeyboardMode::Normal;
  std::vector<u8> flash;
};

// Written by a life's process, read by the trial's.
struct LifeReport {
  bool concluded;
  bool updated;
  bool processEnded;  // the service stopped or was killed before the life was over
  KeyboardMode mode;
  u64 virtualMs;
  u64 platformCalls;
  u64 troubledCalls;
  u64 troubledTransfers;
  u64 troubledMemoryRequests;
  u64 lastBlockTransfer;
  u64 callFaults;
  std::size_t flashBytes;
  char text[ReportBytes];  // lines: "V violation", "T trouble", "W word"
  u8 flash[MostFlashBytes];
};

// Whether the plan does something after which only a new start of the service may help.
bool MayNeedNewStart(const TrialPlan& plan) {
  return plan.callFault.has_value() || plan.refuseMemory.has_value();
}

// The service says its own lines on standard output; a trial has no use for them.
void SilenceStandardOutput() {
  const int nowhere = open("/dev/null", O_WRONLY);
  dup2(nowhere, STDOUT_FILENO);
  close(nowhere);
}

NorFlash FlashFrom(const std::vector<FlashRegion>& regions, const std::vector<u8>& bytes) {
  NorFlash flash(regions);
  const std::vector<FlashSector> sectors = flash.sectors();
  for (const FlashSector& sector : sectors) {
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(sector.offset);
    flash.Program(sector.address, {begin, begin + static_cast<std::ptrdiff_t>(sector.sizeBytes)});
  }
  return flash;
}

// One life of the service, in a host process of its own.
class Life {
 public:
  Life(const TrialPlan& plan, const std::string& driveFolder, const Carried& carried, bool troubled,
       LifeReport& report)
      : plan_(plan),
        report_(report),
        troubled_(troubled),
        tablet_(OptionsFor(plan, driveFolder)),
        keyboard_(*new VirtualKeyboard(tablet_.machine(), plan.keyboard)),
        foreign_(*new ForeignKeyboard(tablet_.machine(), {})),
        stage_{tablet_, keyboard_, *new VirtualKeyboard(tablet_.machine(), OptionsOfSecond(plan)),
               foreign_, deliveries_},
        judge_(stage_, plan, keyboard_.ReadFlash()) {
    if (carried.any) {
      keyboard_.WriteFlash(FlashFrom(plan.keyboard.flash, carried.flash));
    }
    attachInDfu_ = carried.any && carried.mode == KeyboardMode::Dfu;
  }

  void Run() {
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
    AwaitLateNotices();
    Conclude();
  }

 private:
  static TabletOptions OptionsFor(const TrialPlan& plan, const std::string& driveFolder) {
    TabletOptions options;
    options.scheduler = plan.scheduler;
    options.driveFolder = driveFolder;
    return options;
  }

  static KeyboardOptions OptionsOfSecond(const TrialPlan& plan) {
    KeyboardOptions options = plan.keyboard;
    options.unit = u"8&5e6f7a8b";
    return options;
  }

  platform::Machine& machine() { return tablet_.machine(); }

  // Asked with the scheduler's lock held, too.
  bool HasEnded() { return killed_ || tablet_.machine().processExitCode().has_value(); }

  bool IsUpdated(const VirtualKeyboard& keyboard) const {
    return keyboard.runningVersion() == plan_.package.version;
  }
  bool IsUpdated() const { return IsUpdated(keyboard_); }

  void Watch() {
    if (plan_.trace) {
      timeline_ = new Timeline(machine(), stderr, {});
      timeline_->WatchMachine();
    }
    machine().devices.ObserveTransfers([this](const platform::TransferRecord& record) {
      if (timeline_ != nullptr) {
        timeline_->Write("wire", DescribeTransfer(record));
      }
      judge_.LookAtTransfer(record);
      if (record.setup.Request == DfuDnload && record.setup.Value > 1) {
        report_.lastBlockTransfer = machine().devices.transferCount();
      }
    });
    machine().devices.PlanDeliveries(
        [this](const platform::Notice& notice) { return PlanDelivery(notice); });
    machine().scheduler.OnStuck([this](const std::string& why) { EndStuck(why); });
  }

  platform::DeliveryPlan PlanDelivery(const platform::Notice& notice) {
    platform::DeliveryPlan delivery;
    delivery.delayMs = deliveries_.delayMs;
    if (notice.action == CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL && TakeOne(deliveries_.drop)) {
      delivery.times = 0;
      Count("arrival dropped");
    } else if (TakeOne(deliveries_.twice)) {
      delivery.times = 2;
      Count("notice delivered twice");
    }
    judge_.NoteOccasions(delivery.times);
    const std::scoped_lock lock(lock_);
    lastNoticeMs_ = std::max<u64>(lastNoticeMs_, tablet_.nowMs() + delivery.delayMs);
    return delivery;
  }

  static bool TakeOne(std::atomic<u32>& counter) {
    u32 left = counter;
    while (left > 0 && !counter.compare_exchange_weak(left, left - 1)) {
    }
    return left > 0;
  }

  void SetUp() {
    std::error_code ignored;
    std::filesystem::remove_all(
        tablet_.driveFolder() + "/Windows/System32/DriverStore/FileRepository", ignored);
    tablet_.InstallPackage(plan_.package.fileName, plan_.package.bytes);
    machine().power.SetBatteryPercent(troubled_ ? plan_.batteryPercent : 80);
    if (plan_.userLoggedOn || !troubled_) {
      tablet_.LogOnUser();
      loggedOn_ = true;
    }
    if (plan_.secondIsListedFirst) {
      // The lists keep the order in which devices came first.
      stage_.second.AttachInDfuMode();
      stage_.second.Detach();
    }
    if (troubled_) {
      ArmFaults();
    }
    if (!troubled_ || plan_.attachMs == 0) {
      PlugIn();
    }
    judge_.NoteOccasions(1);
    tablet_.StartService();
  }

  void PlugIn() {
    if (attachInDfu_) {
      keyboard_.AttachInDfuMode();
    } else {
      keyboard_.Attach();
    }
  }

  void ArmFaults() {
    if (plan_.callFault.has_value()) {
      machine().gate.FailNumber(plan_.callFault->number, plan_.callFault->errorIndex,
                                plan_.callFault->fromThenOn);
    }
    if (plan_.pull.has_value()) {
      machine().devices.AtTransfer(plan_.pull->transfer, [this] {
        if (troublesEnded_) {
          return;
        }
        Count("pulled at a transfer");
        keyboard_.PullFor(plan_.pull->awayMs, keyboard_.mode() == KeyboardMode::Dfu);
      });
    }
    if (plan_.announceAtTransfer.has_value()) {
      machine().devices.AtTransfer(*plan_.announceAtTransfer, [this] {
        if (!troublesEnded_ && keyboard_.mode() == KeyboardMode::Dfu) {
          Count("announced again");
          machine().devices.Inject(
              {CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, DfuModeInterfaceGuid, u"once more"});
        }
      });
    }
    if (plan_.attachSecondAtTransfer.has_value()) {
      machine().devices.AtTransfer(*plan_.attachSecondAtTransfer, [this] {
        if (!troublesEnded_) {
          Count("second keyboard attached");
          stage_.AttachSecond();
        }
      });
    }
    if (plan_.killAtCall.has_value()) {
      machine().gate.AtNumber(*plan_.killAtCall, [this] {
        if (troublesEnded_) {
          return;
        }
        Count("killed at a call");
        killed_ = true;
        machine().KillServiceProcess();
      });
    }
    if (plan_.refuseMemory.has_value()) {
      RefuseMemoryRequest(*plan_.refuseMemory);
    }
  }

  void PassUntil(u64 timeMs) {
    if (timeMs > tablet_.nowMs()) {
      tablet_.PassTimeUntil([this] { return HasEnded(); }, timeMs - tablet_.nowMs());
    }
  }

  void LetTroublesHappen() {
    bool attached = plan_.attachMs == 0;
    for (const TrialEvent& event : plan_.events) {
      if (!attached && plan_.attachMs <= event.timeMs) {
        PassUntil(plan_.attachMs);
        PlugIn();
        attached = true;
      }
      PassUntil(event.timeMs);
      if (HasEnded()) {
        return;
      }
      if (timeline_ != nullptr) {
        timeline_->Write("trouble", event.name);
      }
      Count(event.name);
      event.happen(stage_);
    }
    if (!attached) {
      PassUntil(plan_.attachMs);
      PlugIn();
    }
    PassUntil(plan_.quietAtMs);
  }

  // From here on the world is as it should be.
  void EndTroubles() {
    if (timeline_ != nullptr) {
      timeline_->Write("trouble", "all of it ends");
    }
    troublesEnded_ = true;
    report_.callFaults = machine().gate.failed();
    report_.troubledCalls = machine().gate.total();
    report_.troubledTransfers = machine().devices.transferCount();
    report_.troubledMemoryRequests = ProductMemory().requests;
    machine().gate.ClearFailures();
    if (MemoryWasRefused()) {
      Count("memory refused");
    }
    RefuseMemoryRequest(0);
    deliveries_.drop = 0;
    deliveries_.twice = 0;
    deliveries_.delayMs = 0;
    keyboard_.Intercept(nullptr);
    keyboard_.ForgetScript();
    keyboard_.Change([this](KeyboardOptions& options) { options = plan_.keyboard; });
    stage_.second.Detach();
    machine().power.SetBatteryPercent(80);
    if (!loggedOn_) {
      tablet_.LogOnUser();
    }
  }

  void Recover() {
    if (!troubled_) {
      // A new start alone should do.
      tablet_.PassTimeUntil([this] { return IsUpdated() || HasEnded(); }, UpdateWithinMs);
    }
    if (!plan_.expectsUpdate) {
      PassUntil(plan_.quietAtMs + SettleMs);
      return;
    }
    if (!troubled_ && !IsUpdated() && !HasEnded()) {
      judge_.Violate("a new start of the service did not update the keyboard");
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
  void RecoverSecond() {
    if (plan_.expectsUpdate && !IsUpdated()) {
      return;
    }
    stage_.second.AttachInDfuMode();
    tablet_.PassTimeUntil([this] { return IsUpdated(stage_.second) || HasEnded(); },
                          UpdateWithinMs);
    if (!IsUpdated(stage_.second) && !HasEnded() && !MayNeedNewStart(plan_)) {
      judge_.Violate("the second keyboard was not updated although it was plugged in anew");
    }
    tablet_.PassTime(SettleMs);
  }

  // One that comes late brings a decision, and the life must not be judged in the midst of it.
  void AwaitLateNotices() {
    u64 lastMs = 0;
    {
      const std::scoped_lock lock(lock_);
      lastMs = lastNoticeMs_;
    }
    PassUntil(lastMs + SettleMs);
  }

  void Conclude() {
    report_.updated = IsUpdated();
    report_.processEnded = HasEnded();
    // An operation whose thread could not be made holds what it opened until the device's next
    // arrival, which does not come when its work was not needed any more.
    const bool idle = machine().gate.FailedOf(platform::Call::CreateThread) == 0;
    judge_.ConcludeLife(idle && report_.updated && !report_.processEnded);
    report_.mode = keyboard_.mode();
    report_.virtualMs = tablet_.nowMs();
    report_.platformCalls = machine().gate.total();
    const NorFlash flash = keyboard_.ReadFlash();
    report_.flashBytes = std::min(flash.bytes().size(), MostFlashBytes);
    std::memcpy(report_.flash, flash.bytes().data(), report_.flashBytes);
    WriteText();
    report_.concluded = true;
  }

  void WriteText() {
    std::string text;
    for (const std::string& violation : judge_.violations()) {
      text += "V " + violation + "\n";
    }
    for (const ToldWord& told : tablet_.WordsTold()) {
      text += "W " + told.word + "\n";
    }
    const std::scoped_lock lock(lock_);
    for (const auto& [trouble, count] : troubles_) {
      for (u64 i = 0; i < count; ++i) {
        text += "T " + trouble + "\n";
      }
    }
    std::strncpy(report_.text, text.c_str(), ReportBytes - 1);
  }

  // No thread can run any more, so neither can this one: says so and ends the process.
  void EndStuck(const std::string& why) {
    std::snprintf(report_.text, ReportBytes, "V %s\n", why.substr(0, why.find('\n')).c_str());
    std::fprintf(stderr, "%s: %s\n", plan_.name.c_str(), why.c_str());
    _exit(1);
  }

  void Count(const std::string& trouble) {
    const std::scoped_lock lock(lock_);
    ++troubles_[trouble];
  }

  const TrialPlan& plan_;
  LifeReport& report_;
  const bool troubled_;
  Tablet tablet_;
  VirtualKeyboard& keyboard_;
  ForeignKeyboard& foreign_;
  Deliveries deliveries_;
  Stage stage_;
  Judge judge_;
  Timeline* timeline_ = nullptr;
  bool attachInDfu_ = false;
  bool loggedOn_ = false;
  std::atomic<bool> killed_ = false;
  std::atomic<bool> troublesEnded_ = false;
  std::mutex lock_;  // guards what follows
  std::map<std::string, u64> troubles_;
  u64 lastNoticeMs_ = 0;  // when the last notice reaches the service
};

// The report's page, shared with the lives' processes. One a host process is enough.
LifeReport& SharedReport() {
  static void* const page =
      mmap(nullptr, sizeof(LifeReport), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return *static_cast<LifeReport*>(page);
}

void ReadText(const LifeReport& life, TrialReport& report) {
  std::istringstream lines(life.text);
  for (std::string line; std::getline(lines, line);) {
    const std::string rest = line.substr(2);
    if (line[0] == 'V') {
      report.violations.push_back(rest);
    } else if (line[0] == 'T') {
      ++report.troubles[rest];
    } else {
      ++report.words[rest];
    }
  }
}

// Runs one life in a child process. False when the child did not get to its end.
bool RunLifeApart(const TrialPlan& plan, const std::string& driveFolder, const Carried& carried,
                  bool troubled, TrialReport& report) {
  LifeReport& life = SharedReport();
  std::memset(&life, 0, offsetof(LifeReport, text) + 1);
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    SilenceStandardOutput();
    // Never destroyed: threads of the service may still stand in its calls.
    (new Life(plan, driveFolder, carried, troubled, life))->Run();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ReadText(life, report);
  if (!life.concluded || status != 0) {
    report.violations.push_back("the service's process ended with status " +
                                std::to_string(status));
    return false;
  }
  return true;
}

}  // namespace

TrialReport RunTrial(const TrialPlan& plan, const std::string& driveFolder) {
  TrialReport report;
  LifeReport& life = SharedReport();
  Carried carried;
  for (u32 number = 0; number < MostLives; ++number) {
    const bool troubled = number == 0;
    ++report.lives;
    if (!RunLifeApart(plan, driveFolder, carried, troubled, report)) {
      return report;
    }
    report.virtualMs += life.virtualMs;
    if (troubled) {
      report.platformCalls = life.platformCalls;
      report.troubledCalls = life.troubledCalls;
      report.troubledTransfers = life.troubledTransfers;
      report.troubledMemoryRequests = life.troubledMemoryRequests;
      report.lastBlockTransfer = life.lastBlockTransfer;
      if (life.callFaults != 0) {
        report.troubles["call failed"] += life.callFaults;
      }
    }
    report.updated = life.updated;
    if (life.updated || !plan.expectsUpdate || !report.violations.empty()) {
      break;
    }
    if (!life.processEnded && !(troubled && MayNeedNewStart(plan))) {
      report.violations.push_back("the keyboard was not updated although it was plugged in anew");
      break;
    }
    ++report.troubles["new start of the service"];
    carried.any = true;
    carried.mode = life.mode;
    carried.flash.assign(life.flash, life.flash + life.flashBytes);
  }
  if (plan.expectsUpdate && !report.updated && report.violations.empty()) {
    report.violations.push_back("the keyboard was never updated");
  }
  return report;
}

}  // namespace simulator
