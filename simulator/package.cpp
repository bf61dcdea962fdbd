#include "simulator/package.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "common/firmware_version.h"
#include "simulator/keyboard_options.h"

namespace simulator {

namespace {

constexpr std::size_t VersionPositions[] = {MajorPosition, MinorPosition, ModelIdPosition,
                                            HwRevPosition};

// The service's path buffer holds the folder, this name and its terminator.
constexpr std::size_t LongestFileNameChars = 120;

bool IsDigit(char character) {
  return character >= '0' && character <= '9';
}

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

bool EndsWithDfu(const std::string& name) {
  std::string ending = name.size() < 4 ? name : name.substr(name.size() - 4);
  std::transform(ending.begin(), ending.end(), ending.begin(), [](unsigned char character) {
    return static_cast<char>(std::tolower(character));
  });
  return ending == ".dfu";
}

}  // namespace

Package DefaultPackage(const KeyboardVersion& version) {
  Package package;
  package.fileName = "VantrelKb_" + VersionText(version) + ".dfu";
  package.version = version;
  package.contents.targets.emplace_back();
  package.contents.targets[0].elements = BuildKeyboardImage(
      version, {{DefaultFlashAddress, 48 * 1024}, {DefaultFlashAddress + 64 * 1024, 80 * 1024}});
  package.bytes = BuildDfuSe(package.contents);
  return package;
}

std::optional<Package> ReadPackage(const std::string& path, std::string& reason) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    reason = "there is no such file";
    return std::nullopt;
  }
  Package package;
  package.fileName = std::filesystem::path(path).filename().string();
  if (!EndsWithDfu(package.fileName)) {
    reason = "its name does not end in .dfu, so the service does not find it";
    return std::nullopt;
  }
  if (package.fileName.size() > LongestFileNameChars) {
    reason = "its name is too long for the service's path";
    return std::nullopt;
  }
  const std::optional<KeyboardVersion> version = VersionOfName(package.fileName);
  if (!version.has_value()) {
    reason =
        "its name carries no version: the characters at positions 10, 12, 14 and 16 (counted from "
        "0) "
        "must be digits, as in VantrelKb_1.2.3.4.dfu";
    return std::nullopt;
  }
  package.version = *version;

  std::ifstream stream(path, std::ios::binary);
  package.bytes.assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
  if (!stream.good() && !stream.eof()) {
    reason = "it cannot be read";
    return std::nullopt;
  }
  const std::optional<DfuSeFile> contents = ReadDfuSe(package.bytes, reason);
  if (!contents.has_value()) {
    return std::nullopt;
  }
  if (TargetForUpdate(*contents) == nullptr) {
    reason = "it holds no target for alternate setting 0";
    return std::nullopt;
  }
  package.contents = *contents;
  return package;
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

std::string VersionText(const KeyboardVersion& version) {
  const auto digit = [](u8 value) { return std::to_string(value); };
  return digit(version.major) + "." + digit(version.minor) + "." + digit(version.modelId) + "." +
         digit(version.hwRev);
}

}  // namespace simulator
