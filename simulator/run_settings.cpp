#include "simulator/run_settings.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <utility>

#include "dfudevice/memory_map_parser.h"
#include "simulator/exit_codes.h"
#include "simulator/memory_map.h"

namespace simulator {

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

constexpr char MapName[] = "map";
constexpr char PackageName[] = "package";

// The scenario's settings, and what a run has on top of them.
struct RunSettings : Scenario {
  std::string installedFile;
  bool startsInDfuMode = false;
  std::vector<Trouble> troubles;
  std::string expected;
  std::string mapText;         // of alternate setting 0; empty when no map was told
  std::set<std::string> told;  // names of settings
};

template <auto Field>
constexpr Setting<RunSettings> Line(const char* name, const char* takes) {
  return {name, takes, [](const RunSettings& settings) { return Texts{settings.*Field}; },
          [](RunSettings& settings, const std::string& value) {
            settings.*Field = value;
            return !value.empty();
          }};
}

constexpr Setting<RunSettings> RunLines[] = {
    Line<&RunSettings::installedFile>("installed", "a file such as VantrelKb_1.1.2.1.dfu"),
    Line<&RunSettings::expected>("expect", "the verdict's result"),
    {"in-dfu", "yes or no",
     [](const RunSettings& settings) { return Texts{YesNoText(settings.startsInDfuMode)}; },
     [](RunSettings& settings, const std::string& value) {
       return ReadYesNo(value, settings.startsInDfuMode);
     }},
};

bool Refuse(const std::string& reason, PackageRefusal& refusal) {
  refusal = {reason, ExitBadArguments};
  return false;
}

// One source's lines. Each has readers of its own, so that the command line may tell again what the
// scenario told, and its lists replace those of the scenario.
class LineTaker {
 public:
  explicit LineTaker(RunSettings& settings) : settings_(settings) {}

  bool Take(const SettingLine& line, std::string& reason) {
    settings_.told.insert(line.name);
    if (line.name == FaultName) {
      if (!std::exchange(hasFaults_, true)) {
        settings_.troubles.clear();
      }
      return TakeFault(line, settings_.troubles, reason);
    }
    LineOutcome outcome = own_.Take(line, settings_, reason);
    if (outcome == LineOutcome::NotMine) {
      outcome = scenario_.Take(line, settings_, reason);
    }
    if (outcome == LineOutcome::NotMine) {
      reason = UnknownSetting(line);
    }
    return outcome == LineOutcome::Taken;
  }

 private:
  RunSettings& settings_;
  SettingReader<RunSettings> own_{RunLines};
  SettingReader<Scenario> scenario_{ScenarioSettings()};
  bool hasFaults_ = false;
};

bool ReadScenarioText(const std::string& path, std::string& text) {
  std::ifstream file(path, std::ios::binary);
  if (!file || !fs::is_regular_file(path)) {
    return false;
  }
  text.assign(std::istreambuf_iterator<char>(file), {});
  return true;
}

// As a path from here on, whatever the file is that names it.
void FindBeside(const std::string& scenarioFile, std::string& file) {
  if (!file.empty() && fs::path(file).is_relative()) {
    file = (fs::path(scenarioFile).parent_path() / file).string();
  }
}

// The first line that is wrong is told with its number, and nothing is run.
bool TakeScenario(const std::string& path, RunSettings& settings, PackageRefusal& refusal) {
  std::string text;
  if (!ReadScenarioText(path, text)) {
    return Refuse(path + ": cannot be read", refusal);
  }
  std::vector<SettingLine> lines;
  std::string reason;
  if (!SplitSettings(text, lines, reason)) {
    return Refuse(path + ": " + reason, refusal);
  }
  LineTaker taker(settings);
  for (const SettingLine& line : lines) {
    if (!taker.Take(line, reason)) {
      return Refuse(path + ": " + reason, refusal);
    }
    std::string map;
    if (line.name == MapName && ReadQuoted(line.value, map)) {
      settings.mapText = map;
    }
  }
  FindBeside(path, settings.packageDraft.file);
  FindBeside(path, settings.installedFile);
  return true;
}

// Memory that a later setting tells again is there once: sectors of the first one to tell it.
void AddMemory(const KeyboardMemory& memory, std::vector<FlashRegion>& flash) {
  for (const FlashRegion& region : memory.flash) {
    const NorFlash known(flash);
    const NorFlash added({region});
    const bool isNew = std::none_of(
        added.sectors().begin(), added.sectors().end(),
        [&](const FlashSector& sector) { return known.FindSector(sector.address) != nullptr; });
    if (isNew) {
      flash.push_back(region);
    }
  }
}

// Whether the service's own parser makes the same sectors of the text, one by one. A map means what
// the service makes of it. Where the two readers differ, a run would show memory that the service
// does not see.
bool ServiceReadsTheSame(const KeyboardMemory& memory) {
  MemoryMap map{};
  if (ParseMemoryMap(memory.text.data(), memory.text.size(), map) != 1) {
    return false;
  }
  // Laid out sector by sector, because the service keeps no runs.
  const NorFlash flash(memory.flash);
  const std::vector<FlashSector>& sectors = flash.sectors();
  const bool same =
      std::equal(map.sectors, map.sectors + map.sectorCount, sectors.begin(), sectors.end(),
                 [](const MemorySector& theirs, const FlashSector& ours) {
                   return theirs.address == ours.address && theirs.size == ours.sizeBytes &&
                          theirs.attributes == ours.access;
                 });
  delete[] map.sectors;
  return same;
}

// A map that a person states for a keyboard. Empty when it is none, when a device's string has no
// room for it, or when the service reads other sectors from it; reason then goes on from the
// option's name.
std::optional<KeyboardMemory> ReadMapOption(const std::string& text, std::string& reason) {
  if (text.size() > LongestStringChars) {
    reason =
        "is longer than the " + std::to_string(LongestStringChars) + " characters of a USB string";
    return std::nullopt;
  }
  std::optional<KeyboardMemory> memory = ReadMemoryMap(text);
  reason =
      "takes a memory map such as \"@Internal Flash  /0x08000000/04*016Kg\", not '" + text + "'";
  if (memory.has_value() && !ServiceReadsTheSame(*memory)) {
    reason = "is read otherwise by the service: '" + text + "'";
    memory.reset();
  }
  return memory;
}

bool TakeMaps(const Texts& maps, RunSettings& settings, PackageRefusal& refusal) {
  settings.keyboard.flash.clear();
  settings.keyboard.alternateSettings.clear();
  for (const std::string& text : maps) {
    std::string reason;
    const std::optional<KeyboardMemory> memory = ReadMapOption(text, reason);
    if (!memory.has_value()) {
      return Refuse("--map " + reason, refusal);
    }
    AddMemory(*memory, settings.keyboard.flash);
    const auto number = static_cast<u8>(settings.keyboard.alternateSettings.size());
    settings.keyboard.alternateSettings.push_back({number, text});
  }
  settings.mapText = maps[0];
  return true;
}

// In the order of their names; the settings do not depend on each other.
bool TakeOptions(const RunSources& sources, RunSettings& settings, PackageRefusal& refusal) {
  LineTaker taker(settings);
  for (const auto& [name, values] : sources.options) {
    if (name == MapName) {
      if (!values.empty() && !TakeMaps(values, settings, refusal)) {
        return false;
      }
      continue;
    }
    for (const std::string& value : values) {
      std::string reason;
      if (name == PackageName) {
        // A file whatever its name is; what is wrong with that is told when it is read.
        settings.packageDraft.file = value;
        continue;
      }
      if (!taker.Take({0, name, value}, reason)) {
        return Refuse(reason, refusal);
      }
    }
  }
  return true;
}

bool TakeAll(const RunSources& sources, RunSettings& settings, PackageRefusal& refusal) {
  return (sources.scenarioFile.empty() || TakeScenario(sources.scenarioFile, settings, refusal)) &&
         TakeOptions(sources, settings, refusal);
}

// Read as it would be for an update: the service refuses it here or nowhere.
bool ReadNamedPackage(const std::string& file, Package& package, PackageRefusal& refusal) {
  std::optional<Package> read = ReadPackage(file, refusal);
  if (!read.has_value()) {
    refusal.reason = file + " is refused: " + refusal.reason;
    return false;
  }
  package = *read;
  return true;
}

bool MakePackageOf(const PackageDraft& draft, Package& package, PackageRefusal& refusal) {
  if (!draft.file.empty()) {
    return ReadNamedPackage(draft.file, package, refusal);
  }
  package = draft.targets.empty() ? DefaultPackage(draft.version) : MakePackage(draft);
  return TargetForUpdate(package.contents) != nullptr ||
         Refuse("the package needs a target for alternate setting 0", refusal);
}

// The firmware that it comes with lies where its memory begins, unless somebody said where.
void PlaceFirmware(const std::set<std::string>& told, KeyboardOptions& keyboard) {
  const NorFlash flash(keyboard.flash);
  if (!told.contains("image-address") && flash.FindSector(keyboard.imageAddress) == nullptr) {
    keyboard.imageAddress = keyboard.flash[0].address;
  }
  const bool fits = std::all_of(
      keyboard.firmware.begin(), keyboard.firmware.end(),
      [&](const ImagePart& part) { return flash.Read(part.address, part.sizeBytes).has_value(); });
  if (!told.contains("firmware") && !fits) {
    const SectorRun& run = keyboard.flash[0].runs[0];
    keyboard.firmware = {{keyboard.imageAddress, run.count * run.sectorBytes}};
  }
}

// The old package is read by the same rules as the new one: what the service could not have
// installed cannot be there.
bool Install(const RunSettings& settings, UpdateRunOptions& run, PackageRefusal& refusal) {
  if (settings.installedFile.empty()) {
    return true;
  }
  Package installed;
  if (!ReadNamedPackage(settings.installedFile, installed, refusal)) {
    return false;
  }
  run.installed = installed;
  return true;
}

}  // namespace

bool ReadRun(const RunSources& sources, UpdateRunOptions& run, PackageRefusal& refusal) {
  RunSettings settings;
  if (!TakeAll(sources, settings, refusal) ||
      !MakePackageOf(settings.packageDraft, run.package, refusal) ||
      !Install(settings, run, refusal)) {
    return false;
  }
  static_cast<Scenario&>(run) = settings;
  run.memoryIsMadeUp = settings.mapText.empty();
  if (run.memoryIsMadeUp) {
    run.keyboard.flash = run.installed.has_value() ? FlashFor({run.package, *run.installed})
                                                   : FlashFor({run.package});
  }
  PlaceFirmware(settings.told, run.keyboard);
  // One version older, so that there is something to do.
  if (!settings.told.contains("keyboard")) {
    run.keyboard.version =
        run.installed.has_value() ? run.installed->version : OlderThan(run.package.version);
  }
  run.startsInDfuMode = settings.startsInDfuMode;
  run.troubles = settings.troubles;
  // The hand goes through those of a time one after the other.
  std::stable_sort(run.troubles.begin(), run.troubles.end(), HappensBefore);
  run.expected = settings.expected;
  return !run.installed.has_value() || FitsFlash(*run.installed, run.keyboard.flash) ||
         Refuse("--installed " + run.installed->fileName + " does not fit the keyboard's memory",
                refusal);
}

bool ReadKeyboard(const RunSources& sources, KeyboardOptions& keyboard, std::string& mapText,
                  PackageRefusal& refusal) {
  RunSettings settings;
  if (!TakeAll(sources, settings, refusal)) {
    return false;
  }
  keyboard = settings.keyboard;
  mapText = settings.mapText;
  if (!mapText.empty()) {
    PlaceFirmware(settings.told, keyboard);
  }
  return true;
}

}  // namespace simulator
