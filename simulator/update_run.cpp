#include "simulator/update_run.h"

#include <algorithm>
#include <set>

#include "simulator/dfu_descriptors.h"
#include "simulator/tablet.h"
#include "simulator/virtual_keyboard.h"

namespace simulator {

namespace {

// Long enough for any keyboard that makes progress; the run ends when nothing has moved for so
// long.
constexpr u64 PatienceMs = 60'000;

// From the keyboard's return to the end of the session, and to see that nothing more comes.
constexpr u64 AfterglowMs = 10'000;

// Sectors of two sizes. A package that was made elsewhere gets memory around its elements, sectors
// side by side in one region: the text of the memory map has little room.
std::vector<FlashRegion> FlashFor(const Package& package) {
  std::vector<FlashRegion> flash = {{DefaultFlashAddress, {{4, 16 * 1024}, {3, 64 * 1024}}}};
  constexpr u64 SectorBytes = u64{64} * 1024;
  constexpr u64 AddressSpaceEnd = u64{1} << 32;
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

bool Holds(const NorFlash& flash, const std::vector<DfuSeElement>& elements) {
  return std::all_of(elements.begin(), elements.end(), [&](const DfuSeElement& element) {
    return element.data.empty() || flash.Read(element.address, element.data.size()) == element.data;
  });
}

KeyboardOptions KeyboardFor(const UpdateRunOptions& options) {
  KeyboardOptions keyboard;
  keyboard.version = options.keyboardVersion;
  keyboard.flash = FlashFor(options.package);
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

// The time of the wire and the points of time from which the verdict tells where the time went.
struct Stopwatch {
  std::mutex lock;
  u64 firstTransferMs = 0;
  u64 lastTransferMs = 0;
  u64 wireMs = 0;

  void Note(const platform::TransferRecord& record) {
    const std::scoped_lock hold(lock);
    firstTransferMs = firstTransferMs == 0 ? record.startMs : firstTransferMs;
    lastTransferMs = record.endMs;
    wireMs += record.endMs - record.startMs;
  }
};

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
        timeline_(*new Timeline(tablet_.machine(), stream, options.timeline)) {}

  bool Run() {
    SetUp();
    Follow();
    StopService();
    const bool updated = WriteVerdict();
    tablet_.Remove();
    return updated;
  }

 private:
  static TabletOptions TabletFor(const UpdateRunOptions& options) {
    TabletOptions tablet;
    tablet.scheduler.realtime = options.realtime;
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
    if (MemoryMapText(KeyboardOptions{}.flashName, FlashFor(options_.package)).size() >
        LongestStringChars) {
      timeline_.Write("keyboard",
                      "cannot tell all of its memory: the package's elements are too far apart");
    }
    keyboard_.Attach();
    tablet_.StartService();
  }

  // Sits in front of the timeline's own look at the wire.
  void WatchWire() {
    u64 inAll = 0;
    for (const DfuSeElement& element : elements()) {
      inAll += element.data.size();
    }
    Stopwatch& stopwatch = stopwatch_;
    tablet_.machine().devices.ObserveTransfers([&, inAll](const platform::TransferRecord& record) {
      stopwatch.Note(record);
      if (options_.timeline.wire) {
        timeline_.Write("wire", DescribeTransfer(record));
      }
      timeline_.WriteProgress(keyboard_.counts().bytesWritten, inAll);
    });
  }

  // Lets time pass until the keyboard has been updated, telling when it changes its mode.
  void Follow() {
    KeyboardMode mode = keyboard_.mode();
    u64 written = 0;
    bool moved = true;
    while (moved && !IsUpdated()) {
      const u64 transfers = tablet_.machine().devices.transferCount();
      tablet_.PassTimeUntil([&] { return keyboard_.mode() != mode; }, PatienceMs);
      moved = keyboard_.mode() != mode || keyboard_.counts().bytesWritten != written ||
              tablet_.machine().devices.transferCount() != transfers;
      TellMode(mode);
      written = keyboard_.counts().bytesWritten;
    }
    returnedMs_ = tablet_.nowMs();
    tablet_.PassTime(AfterglowMs);
  }

  void TellMode(KeyboardMode& mode) {
    if (keyboard_.mode() == mode) {
      return;
    }
    mode = keyboard_.mode();
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

  bool WriteVerdict() {
    const std::optional<KeyboardVersion> after = keyboard_.runningVersion();
    std::fprintf(stream_, "\nVerdict, read from the keyboard\n");
    std::fprintf(stream_, "  firmware before  %s\n", VersionText(options_.keyboardVersion).c_str());
    std::fprintf(stream_, "  firmware after   %s\n",
                 after.has_value() ? VersionText(*after).c_str() : "none: it does not run");
    std::fprintf(stream_, "  package          %s\n", VersionText(options_.package.version).c_str());
    std::fprintf(stream_, "  flash            %s\n",
                 keyboard_.FlashHolds(elements()) ? "equal to the package, byte for byte"
                                                  : "not the package's");
    WriteWords();
    WriteTimes();
    const bool faultless = WriteFaults();
    const bool updated = IsUpdated() && faultless;
    std::fprintf(stream_, "  result           %s\n", updated ? "updated" : "NOT updated");
    return updated;
  }

  void WriteWords() {
    std::string words;
    for (const ToldWord& told : tablet_.WordsTold()) {
      words += (words.empty() ? "" : ", ") + told.word;
    }
    std::fprintf(stream_, "  user was told    %s\n", words.empty() ? "nothing" : words.c_str());
  }

  void WriteTimes() {
    if (stopwatch_.firstTransferMs == 0) {
      return;
    }
    const BootloaderCounts counts = keyboard_.counts();
    const u64 transfersMs = stopwatch_.lastTransferMs - stopwatch_.firstTransferMs;
    const u64 busyMs = counts.eraseMs + counts.writeMs;
    const u64 waitedMs = transfersMs - std::min(transfersMs, busyMs + stopwatch_.wireMs);
    std::fprintf(stream_, "  where the time went\n");
    WriteTime("until the service first spoke to the keyboard", stopwatch_.firstTransferMs);
    WriteTime("keyboard erasing", counts.eraseMs);
    WriteTime("keyboard writing", counts.writeMs);
    WriteTime("transfers on the wire", stopwatch_.wireMs);
    WriteTime("restart into DFU mode and ticks between operations", waitedMs);
    if (IsUpdated()) {
      WriteTime("restart with the new firmware", returnedMs_ - stopwatch_.lastTransferMs);
    }
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
  Stopwatch stopwatch_;
  u64 returnedMs_ = 0;
};

}  // namespace

bool RunUpdate(const UpdateRunOptions& options, std::FILE* stream) {
  // Threads of the machine may still hold on to it when the host process ends.
  return (new UpdateRun(options, stream))->Run();
}

}  // namespace simulator
