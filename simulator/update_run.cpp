#include "simulator/update_run.h"

#include <algorithm>
#include <atomic>
#include <nlohmann/json.hpp>

#include "platform/machine/machine.h"
#include "simulator/exit_codes.h"
#include "simulator/gates.h"
#include "simulator/hand.h"
#include "simulator/memory_map.h"
#include "simulator/package_fit.h"
#include "simulator/tablet.h"
#include "simulator/terminal.h"
#include "simulator/update_picture.h"
#include "simulator/update_verdict.h"
#include "simulator/virtual_keyboard.h"

namespace simulator {

namespace {

// Long enough for any keyboard that makes progress; the run ends when nothing has moved for so
// long.
constexpr u64 PatienceMs = 60'000;

// From the keyboard's return to the end of the session, and to see that nothing more comes.
constexpr u64 AfterglowMs = 10'000;

const char* NameOfMode(KeyboardMode mode) {
  switch (mode) {
    case KeyboardMode::Detached:
      return "is detached";
    case KeyboardMode::Restarting:
      return "restarts";
    case KeyboardMode::Normal:
      return "is a keyboard";
    case KeyboardMode::Dfu:
      return "is a DFU device";
  }
  return "";
}

// The run's moving parts, so that the functions below need not hand them around.
class UpdateRun {
 public:
  UpdateRun(const UpdateRunOptions& options, std::FILE* stream)
      : options_(options),
        stream_(stream),
        tablet_(TabletFor(options)),
        keyboard_(*new VirtualKeyboard(tablet_.machine(), KeyboardFor(options))),
        timeline_(*new Timeline(tablet_.machine(), stream, options.timeline)),
        account_(*new UpdateAccount(tablet_.machine())),
        second_(*new VirtualKeyboard(tablet_.machine(), SecondFor(options))),
        hand_(*new Hand(tablet_, keyboard_, second_, timeline_, options_)),
        picture_(keyboard_.ReadFlash()) {}

  Json Run() {
    SetUp();
    Follow();
    StopService();
    const UpdateResult result = WriteVerdict();
    tablet_.Remove();
    return Tell(result);
  }

 private:
  static TabletOptions TabletFor(const UpdateRunOptions& options) {
    TabletOptions tablet;
    tablet.scheduler.realtime = options.realtime;
    tablet.scheduler.seed = options.schedulerSeed;
    tablet.driveFolder = options.driveFolder;
    return tablet;
  }

  const std::vector<DfuSeElement>& elements() const {
    return TargetForUpdate(options_.package.contents)->elements;
  }

  static KeyboardOptions SecondFor(const UpdateRunOptions& options) {
    KeyboardOptions second = KeyboardFor(options);
    // Another place at the tablet. Windows makes other paths of it, and the ids stay the same.
    second.unit = u"8&5e6f7a8b";
    return second;
  }

  // One that came with the package's firmware has not been updated to it.
  bool IsUpdated() const {
    return !cameUpdated_ && keyboard_.runningVersion() == options_.package.version &&
           keyboard_.FlashHolds(elements());
  }

  void SetUp() {
    tablet_.InstallPackage(options_.package.fileName, options_.package.bytes);
    if (options_.userLoggedOn) {
      tablet_.LogOnUser();
    }
    tablet_.machine().power.SetBatteryPercent(options_.batteryPercent);
    timeline_.WatchMachine();
    WatchWire();
    timeline_.Write("tablet", "package " + options_.package.fileName + ", battery " +
                                  std::to_string(options_.batteryPercent) + " %");
    if (options_.memoryIsMadeUp &&
        MemoryMapText(options_.keyboard.flashName, options_.keyboard.flash).size() >
            LongestStringChars) {
      timeline_.Write("keyboard",
                      "cannot tell all of its memory: the package's elements are too far apart");
    }
    FillFlash(options_, keyboard_);
    FillFlash(options_, second_);
    // A keyboard that has it all already would look updated from the first moment on.
    cameUpdated_ = !options_.startsInDfuMode && options_.installed.has_value() &&
                   options_.installed->version == options_.package.version &&
                   keyboard_.FlashHolds(elements());
    hand_.Begin();
    tablet_.StartService();
  }

  // What the service had compared when it first told the user something. A keyboard in DFU mode is
  // not compared with anything.
  void NoteGates() {
    if (gates_.is_null() && !options_.startsInDfuMode) {
      gates_ = DescribeGates();
    }
  }

  void WatchWire() {
    u64 inAll = 0;
    for (const DfuSeElement& element : elements()) {
      inAll += element.data.size();
    }
    completes_ = tablet_.machine().processes.launches.Observe(
        [this](const platform::LaunchedProcess& launch) {
          completesTold_ += launch.commandLine == u"COMPLETE" ? 1 : 0;
          NoteGates();
        });
    wire_ =
        tablet_.machine().transfers.Observe([this, inAll](const platform::TransferRecord& record) {
          errors_.Note(record);
          picture_.Note(record);
          if (!moves_) {
            timeline_.WriteProgress(keyboard_.counts().bytesWritten, inAll);
          }
        });
    ShowProgress(inAll);
  }

  // One line that moves, while somebody watches in real time.
  void ShowProgress(u64 bytesInAll) {
    const Terminal terminal = TerminalAt(stream_);
    moves_ = options_.realtime && terminal.canRewrite;
    if (!moves_) {
      return;
    }
    constexpr u64 StepMs = 100;
    tablet_.machine().scheduler.Spawn(
        "progress", platform::ThreadOwner::Machine, false,
        [this, bytesInAll, hasColours = terminal.hasColours]() -> u32 {
          while (moves_) {
            timeline_.ShowStatus(ProgressText(picture_.PhaseName(), keyboard_.counts().bytesWritten,
                                              bytesInAll, tablet_.nowMs(), hasColours));
            tablet_.PassTime(StepMs);
          }
          return 0;
        });
  }

  // Lets time pass until the keyboard has been updated, telling when it changes its mode.
  void Follow() {
    KeyboardMode mode = keyboard_.mode();
    u64 written = 0;
    bool moved = true;
    while (moved && !IsUpdated() && !IsBackUnchanged(mode)) {
      const u64 transfers = tablet_.machine().transfers.total();
      tablet_.PassTimeUntil([&] { return keyboard_.mode() != mode; }, PatienceMs);
      // A long erase shows on the wire alone, and a long silence may be planned.
      moved = keyboard_.mode() != mode || keyboard_.counts().bytesWritten != written ||
              tablet_.machine().transfers.total() != transfers ||
              tablet_.nowMs() < hand_.plannedUntilMs();
      TellMode(mode);
      written = keyboard_.counts().bytesWritten;
    }
    returnedMs_ = tablet_.nowMs();
    NoteGates();
    if (!IsBackUnchanged(mode)) {
      tablet_.PassTime(AfterglowMs);
    }
  }

  // Two whole updates, and the keyboard still does not run the firmware: so would the next ones.
  bool IsBackUnchanged(KeyboardMode mode) const {
    return completesTold_ >= 2 && !IsUpdated() &&
           (mode == KeyboardMode::Normal || mode == KeyboardMode::Dfu);
  }

  void TellMode(KeyboardMode& mode) {
    if (keyboard_.mode() == mode) {
      return;
    }
    mode = keyboard_.mode();
    account_.NoteMode(mode, tablet_.nowMs());
    if (mode == KeyboardMode::Normal || mode == KeyboardMode::Dfu) {
      picture_.NoteReturn(tablet_.nowMs());
    }
    const std::optional<KeyboardVersion> version = keyboard_.runningVersion();
    timeline_.Write("keyboard",
                    std::string(NameOfMode(mode)) +
                        (version.has_value() ? " with firmware " + VersionText(*version) : ""));
  }

  void StopService() {
    if (moves_.exchange(false)) {
      tablet_.PassTime(1'000);  // the thread that shows it has ended by then
      timeline_.ShowStatus("");
    }
    serviceEnded_ = hand_.killedService() || tablet_.machine().processExitCode().has_value();
    if (serviceEnded_) {
      timeline_.Write("tablet", "the service's process has ended before");
      return;
    }
    timeline_.Write("tablet", "stops the service");
    // As at a shutdown. A service that does not stop is left behind; the host process ends it.
    tablet_.machine().services.SendControl(SERVICE_CONTROL_STOP);
    tablet_.PassTimeUntil([&] { return tablet_.machine().processExitCode().has_value(); },
                          AfterglowMs);
  }

  UpdateResult WriteVerdict() {
    const std::optional<KeyboardVersion> after = keyboard_.runningVersion();
    std::fprintf(stream_, "\nVerdict, read from the keyboard\n");
    std::fprintf(stream_, "  firmware before  %s\n",
                 VersionText(options_.keyboard.version).c_str());
    std::fprintf(stream_, "  firmware after   %s\n",
                 after.has_value() ? VersionText(*after).c_str() : "none: it does not run");
    std::fprintf(stream_, "  package          %s\n", VersionText(options_.package.version).c_str());
    std::fprintf(stream_, "  flash            %s\n",
                 keyboard_.FlashHolds(elements()) ? "equal to the package, byte for byte"
                                                  : "not the package's");
    if (options_.memoryIsMadeUp && options_.keyboard.flash.size() > 1) {
      std::fprintf(stream_,
                   "  memory           made up where the package writes: no map was told\n");
    }
    WriteWords();
    const AccountFigures account = CloseAccount();
    if (account_.firstTransferMs() != 0) {
      WriteAccount(account, stream_);
    }
    UpdateEnd end;
    // Mistakes in calls of Windows count more than anything the keyboard says: a real Windows would
    // have crashed, or leaked.
    end.faultless = WriteFaults();
    end.updated = IsUpdated();
    end.completesTold = completesTold_;
    end.reportsTaken = keyboard_.enterDfuReports();
    end.deviceError = errors_.Text();
    end.mode = keyboard_.mode();
    end.serviceEnded = serviceEnded_;
    hand_.WriteUnmet(stream_);
    UpdateResult result = JudgeUpdate(options_, end);
    result.updateMs = returnedMs_ - account_.firstTransferMs();
    result.account = account;
    std::fprintf(stream_, "  result           %s\n", result.reason.c_str());
    if (!options_.expected.empty()) {
      // Who expects a failure has what he wanted when it comes, so the exit code says that.
      const bool isMet = result.reason == options_.expected;
      std::fprintf(stream_, "  expected         %s\n",
                   isMet ? "just that" : options_.expected.c_str());
      result.exitCode = isMet ? ExitDone : ExitFailed;
    }
    return result;
  }

  Json Tell(const UpdateResult& result) const {
    const NorFlash flash = MemoryForUpdate(options_.keyboard);
    Json told{{"exitCode", result.exitCode}, {"result", result.reason}};
    if (!options_.expected.empty()) {
      told["expected"] = options_.expected;
    }
    told["updateMs"] = result.updateMs;
    told["account"] = DescribeAccount(result.account);
    told["package"] = options_.package.fileName;
    told["firmwareBefore"] = VersionText(options_.keyboard.version);
    const std::optional<KeyboardVersion> after = keyboard_.runningVersion();
    told["firmwareAfter"] = after.has_value() ? VersionText(*after) : "";
    told["memoryIsMadeUp"] = options_.memoryIsMadeUp;
    told["gates"] = gates_.is_null() ? Json::array() : gates_;
    picture_.Describe(account_, tablet_.nowMs(), told);
    told["dropped"] = Json::array();
    for (const DroppedSpan& span : DroppedSpans(elements(), flash)) {
      told["dropped"].push_back({{"address", span.address}, {"bytes", span.bytes}});
    }
    told["words"] = Json::array();
    for (const ToldWord& word : tablet_.WordsTold()) {
      told["words"].push_back({{"word", word.word}, {"timeMs", word.timeMs}});
    }
    told["log"] = Json::array();
    for (const TimelineLine& line : timeline_.lines()) {
      told["log"].push_back(
          {{"timeMs", line.timeMs}, {"speaker", line.speaker}, {"text", line.text}});
    }
    return told;
  }

  void WriteWords() {
    std::string words;
    for (const ToldWord& told : tablet_.WordsTold()) {
      words += (words.empty() ? "" : ", ") + told.word;
    }
    std::fprintf(stream_, "  user was told    %s\n", words.empty() ? "nothing" : words.c_str());
  }

  // From the service's start, or the keyboard's arrival, to the keyboard's return. A run that
  // failed has no end; what comes after its last transfer is patience.
  AccountFigures CloseAccount() const {
    const u64 endMs = IsUpdated() ? returnedMs_ : account_.lastTransferMs();
    return account_.Close(options_.attachMs, std::max(options_.attachMs, endMs));
  }

  bool WriteFaults() {
    const std::vector<std::string> faults = tablet_.machine().faults.All();
    for (const std::string& fault : faults) {
      std::fprintf(stream_, "  fault            %s\n", fault.c_str());
    }
    return faults.empty();
  }

  const UpdateRunOptions options_;
  std::FILE* const stream_;
  Tablet tablet_;
  VirtualKeyboard& keyboard_;
  Timeline& timeline_;
  UpdateAccount& account_;
  VirtualKeyboard& second_;
  Hand& hand_;
  std::atomic<bool> moves_ = false;  // a line on the terminal
  bool cameUpdated_ = false;
  bool serviceEnded_ = false;  // before it was asked to stop
  platform::Observation wire_;
  platform::Observation completes_;
  DeviceErrors errors_;
  UpdatePicture picture_;
  Json gates_;
  std::atomic<u32> completesTold_ = 0;
  u64 returnedMs_ = 0;
};

}  // namespace

KeyboardOptions KeyboardFor(const UpdateRunOptions& options) {
  KeyboardOptions keyboard = options.keyboard;
  std::vector<Package> known = {options.package};
  if (options.installed.has_value()) {
    known.push_back(*options.installed);
  }
  keyboard.findVersion = VersionFinder(known, keyboard.imageAddress);
  return keyboard;
}

void FillFlash(const UpdateRunOptions& options, VirtualKeyboard& keyboard) {
  if (!options.installed.has_value()) {
    return;
  }
  NorFlash flash(options.keyboard.flash);
  for (const DfuSeElement& element : TargetForUpdate(options.installed->contents)->elements) {
    flash.Program(element.address, element.data);
  }
  keyboard.WriteFlash(flash);
}

Json RunUpdate(const UpdateRunOptions& options, std::FILE* stream) {
  // Threads of the machine may still hold on to it when the host process ends.
  return (new UpdateRun(options, stream))->Run();
}

}  // namespace simulator
