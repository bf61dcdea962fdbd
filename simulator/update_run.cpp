#include "simulator/update_run.h"

#include <algorithm>
#include <atomic>
#include <set>

#include "simulator/dfu_descriptors.h"
#include "simulator/memory_map.h"
#include "simulator/tablet.h"
#include "simulator/update_verdict.h"
#include "simulator/virtual_keyboard.h"

namespace simulator {

namespace {

// Long enough for any keyboard that makes progress; the run ends when nothing has moved for so
// long.
constexpr u64 PatienceMs = 60'000;

// From the keyboard's return to the end of the session, and to see that nothing more comes.
constexpr u64 AfterglowMs = 10'000;

bool Holds(const NorFlash& flash, const std::vector<DfuSeElement>& elements) {
  return std::all_of(elements.begin(), elements.end(), [&](const DfuSeElement& element) {
    return element.data.empty() || flash.Read(element.address, element.data.size()) == element.data;
  });
}

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
        account_(*new UpdateAccount(tablet_.machine())) {}

  UpdateResult Run() {
    SetUp();
    Follow();
    StopService();
    const UpdateResult result = WriteVerdict();
    tablet_.Remove();
    return result;
  }

 private:
  static TabletOptions TabletFor(const UpdateRunOptions& options) {
    TabletOptions tablet;
    tablet.scheduler.realtime = options.realtime;
    tablet.driveFolder = options.driveFolder;
    return tablet;
  }

  const std::vector<DfuSeElement>& elements() const {
    return TargetForUpdate(options_.package.contents)->elements;
  }

  bool IsUpdated() const {
    return keyboard_.runningVersion() == options_.package.version &&
           keyboard_.FlashHolds(elements());
  }

  void SetUp() {
    tablet_.InstallPackage(options_.package.fileName, options_.package.bytes);
    tablet_.LogOnUser();
    tablet_.machine().power.SetBatteryPercent(options_.batteryPercent);
    timeline_.WatchMachine();
    WatchWire();
    timeline_.Write("tablet", "package " + options_.package.fileName + ", battery " +
                                  std::to_string(options_.batteryPercent) + " %");
    timeline_.Write("keyboard",
                    "is attached with firmware " + VersionText(options_.keyboardVersion));
    if (!options_.memory.has_value() &&
        MemoryMapText(KeyboardOptions{}.flashName, FlashFor(options_.package)).size() >
            LongestStringChars) {
      timeline_.Write("keyboard",
                      "cannot tell all of its memory: the package's elements are too far apart");
    }
    keyboard_.Attach();
    tablet_.StartService();
  }

  void WatchWire() {
    u64 inAll = 0;
    for (const DfuSeElement& element : elements()) {
      inAll += element.data.size();
    }
    completes_ = tablet_.machine().processes.launches.Observe(
        [this](const platform::LaunchedProcess& launch) {
          completesTold_ += launch.commandLine == u"COMPLETE" ? 1 : 0;
        });
    wire_ = tablet_.machine().transfers.Observe([&, inAll](const platform::TransferRecord& record) {
      errors_.Note(record);
      timeline_.WriteProgress(keyboard_.counts().bytesWritten, inAll);
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
      moved = keyboard_.mode() != mode || keyboard_.counts().bytesWritten != written ||
              tablet_.machine().transfers.total() != transfers;
      TellMode(mode);
      written = keyboard_.counts().bytesWritten;
    }
    returnedMs_ = tablet_.nowMs();
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
    const std::optional<KeyboardVersion> version = keyboard_.runningVersion();
    timeline_.Write("keyboard",
                    std::string(NameOfMode(mode)) +
                        (version.has_value() ? " with firmware " + VersionText(*version) : ""));
  }

  void StopService() {
    timeline_.Write("tablet", "stops the service");
    tablet_.machine().services.SendControl(SERVICE_CONTROL_STOP);
    tablet_.PassTimeUntil([&] { return tablet_.machine().processExitCode().has_value(); },
                          AfterglowMs);
  }

  UpdateResult WriteVerdict() {
    const std::optional<KeyboardVersion> after = keyboard_.runningVersion();
    std::fprintf(stream_, "\nVerdict, read from the keyboard\n");
    std::fprintf(stream_, "  firmware before  %s\n", VersionText(options_.keyboardVersion).c_str());
    std::fprintf(stream_, "  firmware after   %s\n",
                 after.has_value() ? VersionText(*after).c_str() : "none: it does not run");
    std::fprintf(stream_, "  package          %s\n", VersionText(options_.package.version).c_str());
    std::fprintf(stream_, "  flash            %s\n",
                 keyboard_.FlashHolds(elements()) ? "equal to the package, byte for byte"
                                                  : "not the package's");
    if (!options_.memory.has_value() && FlashFor(options_.package).size() > 1) {
      std::fprintf(stream_,
                   "  memory           made up where the package writes: no map was told\n");
    }
    WriteWords();
    const AccountFigures account = WriteAccount();
    UpdateEnd end;
    end.faultless = WriteFaults();
    end.updated = IsUpdated();
    end.completesTold = completesTold_;
    end.reportsTaken = keyboard_.enterDfuReports();
    end.deviceError = errors_.Text();
    UpdateResult result = JudgeUpdate(options_, keyboard_.ReadFlash(), end);
    result.updateMs = returnedMs_ - account_.firstTransferMs();
    result.account = account;
    std::fprintf(stream_, "  result           %s\n", result.reason.c_str());
    return result;
  }

  void WriteWords() {
    std::string words;
    for (const ToldWord& told : tablet_.WordsTold()) {
      words += (words.empty() ? "" : ", ") + told.word;
    }
    std::fprintf(stream_, "  user was told    %s\n", words.empty() ? "nothing" : words.c_str());
  }

  // From the service's start, or the keyboard's arrival, to the keyboard's return.
  AccountFigures WriteAccount() {
    const AccountFigures figures = account_.Close(0, returnedMs_);
    if (account_.firstTransferMs() == 0) {
      return figures;
    }
    std::fprintf(stream_, "  where the time went\n");
    WriteTime("delays that the service always makes", figures.delayMs);
    WriteTime("keyboard erasing and writing, as it asked for", figures.pollMs);
    WriteTime("transfers on the wire", figures.wireMs);
    WriteTime("keyboard away, restarting", figures.awayMs);
    WriteTime("anything else", figures.elseMs);
    std::string transfers;
    for (const auto& [request, count] : figures.transfers) {
      transfers += (transfers.empty() ? "" : ", ") + std::to_string(count) + " " + request;
    }
    std::fprintf(stream_, "  what it took\n    %s\n", transfers.c_str());
    if (figures.dataBlocks != 0) {
      std::fprintf(
          stream_, "    %.2f transfers for each of %s data blocks\n",
          static_cast<double>(figures.dataBlockTransfers) / static_cast<double>(figures.dataBlocks),
          CountText(figures.dataBlocks).c_str());
    }
    std::fprintf(stream_, "    %s opens of the device, %s platform calls\n",
                 CountText(figures.deviceOpens).c_str(), CountText(figures.platformCalls).c_str());
    return figures;
  }

  void WriteTime(const char* what, u64 milliseconds) {
    std::fprintf(stream_, "    %12s  %s\n", SecondsText(milliseconds).c_str(), what);
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
  platform::Observation wire_;
  platform::Observation completes_;
  DeviceErrors errors_;
  std::atomic<u32> completesTold_ = 0;
  u64 returnedMs_ = 0;
};

}  // namespace

// Sectors of two sizes. A package that was made elsewhere gets memory around its elements, sectors
// side by side in one region: the text of the memory map has little room.
std::vector<FlashRegion> FlashFor(const Package& package) {
  std::vector<FlashRegion> flash = {{DefaultFlashAddress, {{4, 16 * 1024}, {3, 64 * 1024}}}};
  constexpr u64 SectorBytes = u64{64} * 1024;
  const NorFlash usual(flash);
  std::set<u64> sectors;
  for (const DfuSeElement& element : TargetForUpdate(package.contents)->elements) {
    const u64 end = std::min(element.address + u64{element.data.size()}, AddressSpaceEnd);
    for (u64 at = element.address / SectorBytes * SectorBytes; at < end; at += SectorBytes) {
      if (usual.FindSector(static_cast<u32>(at)) == nullptr) {
        sectors.insert(at);
      }
    }
  }
  for (const u64 at : sectors) {
    if (!sectors.contains(at - SectorBytes)) {
      flash.push_back({static_cast<u32>(at), {{0, u32{SectorBytes}}}});
    }
    ++flash.back().runs[0].count;
  }
  return flash;
}

KeyboardOptions KeyboardFor(const UpdateRunOptions& options) {
  KeyboardOptions keyboard;
  keyboard.version = options.keyboardVersion;
  keyboard.bootloader.transferSize = options.transferSize;
  keyboard.flash = FlashFor(options.package);
  if (options.memory.has_value()) {
    keyboard.flash = options.memory->flash;
    keyboard.alternateSettings[0].mapString = options.memory->mapText;
    keyboard.imageAddress = keyboard.flash[0].address;
    const SectorRun& run = keyboard.flash[0].runs[0];
    keyboard.firmware = {{keyboard.imageAddress, run.count * run.sectorBytes}};
  }
  const std::vector<DfuSeElement> elements = TargetForUpdate(options.package.contents)->elements;
  keyboard.findVersion =
      [elements, image = keyboard.imageAddress,
       version = options.package.version](const NorFlash& flash) -> std::optional<KeyboardVersion> {
    if (Holds(flash, elements)) {
      return version;
    }
    return FindKeyboardImage(flash, image);
  };
  return keyboard;
}

UpdateResult RunUpdate(const UpdateRunOptions& options, std::FILE* stream) {
  // Threads of the machine may still hold on to it when the host process ends.
  return (new UpdateRun(options, stream))->Run();
}

}  // namespace simulator
