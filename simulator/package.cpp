#include "simulator/package.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <set>
#include <utility>

#include "common/firmware_version.h"
#include "common/package_values.h"
#include "platform/machine/text.h"
#include "simulator/exit_codes.h"
#include "simulator/keyboard_options.h"
#include "simulator/tablet.h"

namespace simulator {

namespace {

// The service counts characters of the name and does not look what stands between the digits.
constexpr std::size_t VersionPositions[] = {MajorPosition, MinorPosition, ModelIdPosition,
                                            HwRevPosition};

// The service's path buffer holds the package folder, a "\", this name and its terminator.
constexpr std::size_t LongestFileNameBytes =
    PackagePathBytes - FileRepositoryPathBytes - sizeof(DefaultPackageFolder) - 1;

bool IsDigit(char character) {
  return character >= '0' && character <= '9';
}

// One digit each: a 12 is read as a 1.
std::optional<KeyboardVersion> VersionOfName(const std::string& name) {
  u8 digits[4];
  for (std::size_t i = 0; i < 4; ++i) {
    const std::size_t position = VersionPositions[i];
    if (position >= name.size() || !IsDigit(name[position])) {
      return std::nullopt;
    }
    digits[i] = static_cast<u8>(name[position] - '0');
  }
  return KeyboardVersion{digits[0], digits[1], digits[2], digits[3]};
}

// Windows does not tell small letters from capitals when it looks for "*.dfu".
bool EndsWithDfu(const std::string& name) {
  std::string ending = name.size() < 4 ? name : name.substr(name.size() - 4);
  std::transform(ending.begin(), ending.end(), ending.begin(), [](unsigned char character) {
    return static_cast<char>(std::tolower(character));
  });
  return ending == ".dfu";
}

// On Linux a folder opens like a file; only reading it fails.
bool FindFile(const std::string& path, std::string& reason) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) {
    reason = "there is no such file";
    return false;
  }
  reason = "it is not a file";
  return std::filesystem::is_regular_file(status);
}

// Before a byte is read: what no flash can hold must not fill the memory here.
bool HasUsualSize(const std::string& path, std::string& reason) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  reason = "it is larger than any keyboard's flash (" + std::to_string(LargestPackageBytes) +
           " bytes at the most)";
  return error || size <= LargestPackageBytes;
}

// The service sees the name in the tablet's code page.
bool ReadName(Package& package, std::string& reason) {
  const std::string name = platform::AnsiFromUtf8(package.fileName);
  if (!EndsWithDfu(name)) {
    reason = "its name does not end in .dfu, so the service does not find it";
    return false;
  }
  if (platform::Utf8FromAnsi(name) != package.fileName ||
      name.find_first_of("\\:*?\"<>|") != std::string::npos) {
    reason = "its name holds a character that cannot be in the tablet's file names";
    return false;
  }
  if (name.size() > LongestFileNameBytes) {
    reason = "its name is too long for the service's path, which leaves it " +
             std::to_string(LongestFileNameBytes) + " characters";
    return false;
  }
  const std::optional<KeyboardVersion> version = VersionOfName(name);
  if (!version.has_value()) {
    reason =
        "its name carries no version: the characters at positions 10, 12, 14 and 16 (counted from "
        "0) must be digits, as in VantrelKb_1.2.3.4.dfu";
    return false;
  }
  package.version = *version;
  return true;
}

// In pieces, up to the end or to what cannot be read.
bool ReadBytes(const std::string& path, Package& package, std::string& reason) {
  std::ifstream stream(path, std::ios::binary);
  char chunk[16 * 1024];
  do {
    stream.read(chunk, sizeof(chunk));
    package.bytes.insert(package.bytes.end(), chunk, chunk + stream.gcount());
  } while (stream.good());
  reason = "it cannot be read";
  return stream.eof();
}

bool ReadContents(Package& package, std::string& reason) {
  std::optional<DfuSeFile> contents = ReadDfuSe(package.bytes, reason);
  if (!contents.has_value()) {
    return false;
  }
  const DfuSeTarget* const target = TargetForUpdate(*contents);
  if (std::all_of(target->elements.begin(), target->elements.end(),
                  [](const DfuSeElement& element) { return element.data.empty(); })) {
    reason = "its target for alternate setting 0 holds no firmware";
    return false;
  }
  package.contents = std::move(*contents);
  return true;
}

bool Holds(const NorFlash& flash, const std::vector<DfuSeElement>& elements) {
  return std::all_of(elements.begin(), elements.end(), [&](const DfuSeElement& element) {
    return element.data.empty() || flash.Read(element.address, element.data.size()) == element.data;
  });
}

// The filled elements belong to no image; the others together are one, in their order.
DfuSeTarget MakeTarget(const KeyboardVersion& version, const TargetDraft& draft) {
  std::vector<ImagePart> parts;
  for (const ElementDraft& element : draft.elements) {
    if (!element.fill.has_value()) {
      parts.push_back({element.address, element.sizeBytes});
    }
  }
  std::vector<DfuSeElement> image = BuildKeyboardImage(version, parts);

  DfuSeTarget target;
  target.alternateSetting = draft.alternateSetting;
  std::size_t next = 0;
  for (const ElementDraft& element : draft.elements) {
    if (element.fill.has_value()) {
      target.elements.push_back(
          {element.address, std::vector<u8>(element.sizeBytes, *element.fill)});
    } else {
      target.elements.push_back(std::move(image[next++]));
    }
  }
  return target;
}

}  // namespace

// The name is the only place where a package tells its version to the service.
Package MakePackage(const PackageDraft& draft) {
  Package package;
  package.fileName = "VantrelKb_" + VersionText(draft.version) + ".dfu";
  package.version = draft.version;
  for (const TargetDraft& target : draft.targets) {
    package.contents.targets.push_back(MakeTarget(draft.version, target));
  }
  package.bytes = BuildDfuSe(package.contents);
  return package;
}

std::function<std::optional<KeyboardVersion>(const NorFlash&)> VersionFinder(
    const std::vector<Package>& packages, u32 imageAddress) {
  return [packages, imageAddress](const NorFlash& flash) -> std::optional<KeyboardVersion> {
    for (const Package& package : packages) {
      if (Holds(flash, TargetForUpdate(package.contents)->elements)) {
        return package.version;
      }
    }
    return FindKeyboardImage(flash, imageAddress);
  };
}

// Asked before it is put there: what is not in the flash cannot be booted.
bool FitsFlash(const Package& package, const std::vector<FlashRegion>& flash) {
  const NorFlash memory(flash);
  const std::vector<DfuSeElement>& elements = TargetForUpdate(package.contents)->elements;
  return std::all_of(elements.begin(), elements.end(), [&](const DfuSeElement& element) {
    return element.data.empty() || memory.Read(element.address, element.data.size()).has_value();
  });
}

// Sectors of two sizes. A package that was made elsewhere gets memory around its elements, sectors
// side by side in one region: the text of the memory map has little room.
// The usual memory comes first, so that a package for it gets no other.
std::vector<FlashRegion> FlashFor(const std::vector<Package>& packages) {
  std::vector<FlashRegion> flash = {{DefaultFlashAddress, {{4, 16 * 1024}, {3, 64 * 1024}}}};
  constexpr u64 SectorBytes = u64{64} * 1024;
  const NorFlash usual(flash);
  std::set<u64> sectors;
  for (const Package& package : packages) {
    for (const DfuSeElement& element : TargetForUpdate(package.contents)->elements) {
      const u64 end = std::min(element.address + u64{element.data.size()}, AddressSpaceEnd);
      for (u64 at = element.address / SectorBytes * SectorBytes; at < end; at += SectorBytes) {
        if (usual.FindSector(static_cast<u32>(at)) == nullptr) {
          sectors.insert(at);
        }
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

Package DefaultPackage(const KeyboardVersion& version) {
  return MakePackage({version,
                      {{0,
                        {{DefaultFlashAddress, 48 * 1024, {}},
                         {DefaultFlashAddress + 64 * 1024, 80 * 1024, {}}}}}});
}

std::optional<Package> ReadPackage(const std::string& path, PackageRefusal& refusal) {
  Package package;
  if (ReadPackageFile(path, package, refusal) && ReadPackageContents(package, refusal)) {
    return package;
  }
  return std::nullopt;
}

bool ReadPackageFile(const std::string& path, Package& package, PackageRefusal& refusal) {
  package.fileName = std::filesystem::path(path).filename().string();
  refusal.exitCode = ExitBadArguments;
  if (!FindFile(path, refusal.reason)) {
    return false;
  }
  refusal.exitCode = ExitNothingToDo;
  if (!ReadName(package, refusal.reason)) {
    return false;
  }
  refusal.exitCode = ExitFailed;
  return HasUsualSize(path, refusal.reason) && ReadBytes(path, package, refusal.reason);
}

bool ReadPackageContents(Package& package, PackageRefusal& refusal) {
  refusal.exitCode = ExitFailed;
  return ReadContents(package, refusal.reason);
}

// A minor version is one digit, so 9 comes before the next major one.
KeyboardVersion OlderThan(KeyboardVersion version) {
  if (version.minor > 0) {
    --version.minor;
  } else if (version.major > 0) {
    --version.major;
    version.minor = 9;
  }
  return version;
}

std::optional<KeyboardVersion> ParseVersion(const std::string& text) {
  const bool shaped = text.size() == 7 && IsDigit(text[0]) && IsDigit(text[2]) &&
                      IsDigit(text[4]) && IsDigit(text[6]) && text[1] == '.' && text[3] == '.' &&
                      text[5] == '.';
  if (!shaped) {
    return std::nullopt;
  }
  const auto digit = [&](std::size_t position) { return static_cast<u8>(text[position] - '0'); };
  return KeyboardVersion{digit(0), digit(2), digit(4), digit(6)};
}

// With dots, as in the names of packages.
std::string VersionText(const KeyboardVersion& version) {
  const auto digit = [](u8 value) { return std::to_string(value); };
  return digit(version.major) + "." + digit(version.minor) + "." + digit(version.modelId) + "." +
         digit(version.hwRev);
}

}  // namespace simulator
