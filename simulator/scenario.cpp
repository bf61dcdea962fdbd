#include "simulator/scenario.h"

#include <algorithm>

#include "simulator/collection_text.h"
#include "simulator/memory_map.h"

namespace simulator {

namespace {

using Texts = std::vector<std::string>;

constexpr u64 MostU32 = 0xFFFFFFFF;
constexpr u64 MostElementBytes = 16 * 1024 * 1024;

// A time that the protocol can tell: bwPollTimeout has 24 bits.
constexpr u64 MostPollMs = 0xFFFFFF;

// --- Rows for one value each, by the field that holds it ---

template <class T>
auto& At(auto& scenario, T Scenario::*field) {
  return scenario.*field;
}

template <class T>
auto& At(auto& scenario, T KeyboardOptions::*field) {
  return scenario.keyboard.*field;
}

template <class T>
auto& At(auto& scenario, T BootloaderOptions::*field) {
  return scenario.keyboard.bootloader.*field;
}

template <class T>
auto& At(auto& scenario, T PackageDraft::*field) {
  return scenario.packageDraft.*field;
}

template <auto Field, u64 Least, u64 Most>
constexpr Setting<Scenario> Number(const char* name, const char* takes, bool isAlwaysTold = false) {
  return {name,
          takes,
          [](const Scenario& scenario) { return Texts{std::to_string(At(scenario, Field))}; },
          [](Scenario& scenario, const std::string& value) {
            return ReadNumber(value, Least, Most, At(scenario, Field));
          },
          nullptr,
          isAlwaysTold};
}

// In milliseconds, as in the name.
template <auto Field>
constexpr Setting<Scenario> Milliseconds(const char* name) {
  return Number<Field, 0, MostPollMs>(name, "0 to 16777215 milliseconds");
}

template <auto Field>
constexpr Setting<Scenario> YesNo(const char* name) {
  return {name, "yes or no",
          [](const Scenario& scenario) { return Texts{YesNoText(At(scenario, Field))}; },
          [](Scenario& scenario, const std::string& value) {
            return ReadYesNo(value, At(scenario, Field));
          }};
}

template <auto Field>
constexpr Setting<Scenario> Version(const char* name) {
  return {name,
          "four digits such as 1.0.2.1",
          [](const Scenario& scenario) { return Texts{VersionText(At(scenario, Field))}; },
          [](Scenario& scenario, const std::string& value) {
            const std::optional<KeyboardVersion> version = ParseVersion(value);
            At(scenario, Field) = version.value_or(At(scenario, Field));
            return version.has_value();
          },
          nullptr,
          true};
}

// --- The map, and what lies in the flash ---

// From the flash, so that a drawn keyboard tells a map as well.
Texts WriteMap(const Scenario& scenario) {
  const KeyboardOptions& keyboard = scenario.keyboard;
  return {QuotedText(MemoryMapText(keyboard.flashName, keyboard.flash))};
}

bool ReadMap(Scenario& scenario, const std::string& value) {
  std::string map;
  if (!ReadQuoted(value, map)) {
    return false;
  }
  const std::optional<KeyboardMemory> memory = ReadMemoryMap(map);
  if (memory.has_value()) {
    scenario.keyboard.flashName = memory->name;
    scenario.keyboard.flash = memory->flash;
  }
  return memory.has_value();
}

// An end beyond the last address could be meant, to see what comes of it; but no keyboard has such
// memory.
bool ReadSpan(const Texts& words, u32& address, u32& sizeBytes) {
  return words.size() >= 2 && ReadNumber(words[0], 0, MostU32, address) &&
         ReadNumber(words[1], 0, std::min(MostElementBytes, (u64{1} << 32) - address), sizeBytes);
}

std::string SpanText(u32 address, u32 sizeBytes) {
  return HexText(address) + " " + std::to_string(sizeBytes);
}

// The parts of the image that the keyboard came with.
Texts WriteFirmware(const Scenario& scenario) {
  Texts values;
  for (const ImagePart& part : scenario.keyboard.firmware) {
    values.push_back(SpanText(part.address, part.sizeBytes));
  }
  return values;
}

bool ReadFirmware(Scenario& scenario, const std::string& value) {
  const Texts words = WordsOf(value);
  ImagePart part;
  if (words.size() != 2 || !ReadSpan(words, part.address, part.sizeBytes)) {
    return false;
  }
  scenario.keyboard.firmware.push_back(part);
  return true;
}

Texts WriteImageAddress(const Scenario& scenario) {
  return {HexText(scenario.keyboard.imageAddress)};
}

bool ReadImageAddress(Scenario& scenario, const std::string& value) {
  return ReadNumber(value, 0, MostU32, scenario.keyboard.imageAddress);
}

// --- Lists: alternate settings, collections, the order of arrival ---

Texts WriteAlternateSettings(const Scenario& scenario) {
  Texts values;
  for (const AlternateSettingOptions& setting : scenario.keyboard.alternateSettings) {
    values.push_back(std::to_string(setting.number) +
                     (setting.mapString ? " " + QuotedText(*setting.mapString) : ""));
  }
  return values;
}

// A setting without a map of its own tells that of the flash, as most bootloaders with one memory
// do.
bool ReadAlternateSetting(Scenario& scenario, const std::string& value) {
  const Texts words = WordsOf(value);
  AlternateSettingOptions setting;
  if (words.empty() || words.size() > 2 || !ReadNumber(words[0], 0, 255, setting.number) ||
      (words.size() == 2 && !ReadQuoted(words[1], setting.mapString.emplace()))) {
    return false;
  }
  scenario.keyboard.alternateSettings.push_back(setting);
  return true;
}

Texts WriteCollections(const Scenario& scenario) {
  Texts values;
  for (const HidCollectionOptions& collection : scenario.keyboard.collections) {
    values.push_back(CollectionText(collection));
  }
  return values;
}

bool ReadCollection(Scenario& scenario, const std::string& value) {
  HidCollectionOptions collection;
  if (!ReadCollectionText(value, collection)) {
    return false;
  }
  scenario.keyboard.collections.push_back(collection);
  return true;
}

Texts WriteArrivalOrder(const Scenario& scenario) {
  std::string text;
  for (const std::size_t place : scenario.keyboard.arrivalOrder) {
    text += (text.empty() ? "" : " ") + std::to_string(place);
  }
  return text.empty() ? Texts{} : Texts{text};
}

// Numbers of interfaces that are left out come last, so any list makes sense.
bool ReadArrivalOrder(Scenario& scenario, const std::string& value) {
  std::vector<std::size_t>& order = scenario.keyboard.arrivalOrder;
  for (const std::string& word : WordsOf(value)) {
    if (!ReadNumber(word, 0, 255, order.emplace_back())) {
      return false;
    }
  }
  return true;
}

// --- The package ---

Texts WritePackage(const Scenario& scenario) {
  const PackageDraft& draft = scenario.packageDraft;
  return {draft.file.empty() ? VersionText(draft.version) : draft.file};
}

bool ReadPackageLine(Scenario& scenario, const std::string& value) {
  const std::optional<KeyboardVersion> version = ParseVersion(value);
  scenario.packageDraft.version = version.value_or(scenario.packageDraft.version);
  scenario.packageDraft.file = version.has_value() ? "" : value;
  return version.has_value() || value.ends_with(".dfu") || value.ends_with(".DFU");
}

std::string ElementText(const ElementDraft& element) {
  return SpanText(element.address, element.sizeBytes) +
         (element.fill ? " fill " + std::to_string(*element.fill) : "");
}

Texts WriteTargets(const Scenario& scenario) {
  Texts values;
  for (const TargetDraft& target : scenario.packageDraft.targets) {
    std::string text = std::to_string(target.alternateSetting);
    for (const ElementDraft& element : target.elements) {
      text += (&element == &target.elements[0] ? ": " : ", ") + ElementText(element);
    }
    values.push_back(text);
  }
  return values;
}

// With "fill" the bytes are all the same: a place that no firmware needs, and yet the service must
// write it.
bool ReadElement(const std::string& text, ElementDraft& element) {
  const Texts words = WordsOf(text);
  if (!ReadSpan(words, element.address, element.sizeBytes)) {
    return false;
  }
  return words.size() == 2 || (words.size() == 4 && words[2] == "fill" &&
                               ReadNumber(words[3], 0, 255, element.fill.emplace()));
}

bool ReadTarget(Scenario& scenario, const std::string& value) {
  TargetDraft target;
  const std::size_t colon = value.find(':');
  if (!ReadNumber(value.substr(0, colon), 0, 255, target.alternateSetting)) {
    return false;
  }
  for (std::size_t begin = colon; begin < value.size();) {
    const std::size_t end = std::min(value.find(',', begin + 1), value.size());
    if (!ReadElement(value.substr(begin + 1, end - begin - 1), target.elements.emplace_back())) {
      return false;
    }
    begin = end;
  }
  scenario.packageDraft.targets.push_back(target);
  return true;
}

// --- The tablet ---

Texts WriteAttachTime(const Scenario& scenario) {
  return {TimeText(scenario.attachMs)};
}

// With its unit: a bare number could be either.
bool ReadAttachTime(Scenario& scenario, const std::string& value) {
  return ReadTime(value, scenario.attachMs);
}

// Windows tells 255 when it does not know the charge; nothing lies between 100 and that.
bool ReadBattery(Scenario& scenario, const std::string& value) {
  u8 percent = 0;
  if (!ReadNumber(value, 0, 255, percent) || (percent > 100 && percent != 255)) {
    return false;
  }
  scenario.batteryPercent = percent;
  return true;
}

using S = Scenario;
using Keyboard = KeyboardOptions;
using Bootloader = BootloaderOptions;

constexpr char SpanTakes[] = "an address and a size in bytes";

constexpr Setting<Scenario> Table[] = {
    Version<&Keyboard::version>("keyboard"),
    {"map", "a memory map in quotes, such as \"@Flash/0x08000000/04*016Kg\"", WriteMap, ReadMap,
     nullptr, true},
    {"firmware", SpanTakes, WriteFirmware, ReadFirmware, [](S& s) { s.keyboard.firmware.clear(); }},
    {"image-address", "an address", WriteImageAddress, ReadImageAddress},
    Number<&Bootloader::transferSize, 0, 65'535>("transfer-size", "0 to 65535 bytes", true),
    {"alternate-setting", "a number up to 255, and a map in quotes if it has its own",
     WriteAlternateSettings, ReadAlternateSetting,
     [](S& s) { s.keyboard.alternateSettings.clear(); }},
    {"collection", "two usage numbers, and names with a value each", WriteCollections,
     ReadCollection, [](S& s) { s.keyboard.collections.clear(); }},
    {"arrival-order", "the interfaces' numbers", WriteArrivalOrder, ReadArrivalOrder,
     [](S& s) { s.keyboard.arrivalOrder.clear(); }},
    Milliseconds<&Keyboard::arrivalGapMs>("arrival-gap-ms"),
    Milliseconds<&Bootloader::eraseBaseMs>("erase-ms"),
    Milliseconds<&Bootloader::erasePer16KiBMs>("erase-16k-ms"),
    Milliseconds<&Bootloader::writeMs>("write-ms"),
    Milliseconds<&Bootloader::setAddressMs>("set-address-ms"),
    Number<&Bootloader::busyRounds, 1, 1000>("busy-rounds", "1 to 1000"),
    Number<&Bootloader::donePercentAtPowerLoss, 0, 100>("done-percent-at-power-loss",
                                                        "0 to 100 percent"),
    Milliseconds<&Bootloader::manifestMs>("manifest-ms"),
    YesNo<&Bootloader::reportsManifestation>("reports-manifestation"),
    Number<&Keyboard::refusedReports, 0, 1000>("refused-reports", "0 to 1000"),
    Milliseconds<&Keyboard::detachDelayMs>("detach-ms"),
    Milliseconds<&Keyboard::restartMs>("restart-ms"),
    YesNo<&Keyboard::returnsAfterReport>("returns-after-report"),
    Milliseconds<&Keyboard::leaveDelayMs>("leave-ms"),
    Milliseconds<&Keyboard::silentMs>("silent-ms"),
    Number<&Keyboard::dfuOpenError, 0, MostU32>("dfu-open-error", "a Windows error number"),
    {"package", "four digits such as 1.0.2.1, or a file such as VantrelKb_1.0.2.1.dfu",
     WritePackage, ReadPackageLine, nullptr, true},
    {"target",
     "an alternate setting, ':' and its elements: address, size and perhaps 'fill' with a byte, "
     "between commas",
     WriteTargets, ReadTarget, [](S& s) { s.packageDraft.targets.clear(); }, true},
    {"battery", "0 to 100, or 255 for unknown",
     [](const S& s) { return Texts{std::to_string(s.batteryPercent)}; }, ReadBattery, nullptr,
     true},
    YesNo<&S::userLoggedOn>("user"),
    {"attach-at", "a time such as 22.5s or 300ms", WriteAttachTime, ReadAttachTime},
    Number<&S::schedulerSeed, 0, ~u64{0}>("seed", "a number"),
};

}  // namespace

std::span<const Setting<Scenario>> ScenarioSettings() {
  return Table;
}

}  // namespace simulator
