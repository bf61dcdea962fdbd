// Firmware packages as the simulator offers them to the service: made here, or the user's own.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/types.h"
#include "simulator/dfuse_file.h"
#include "simulator/keyboard_image.h"

namespace simulator {

// A firmware package: a file name that carries a version, and a file that the service accepts.
struct Package {
  std::string fileName;
  std::vector<u8> bytes;
  KeyboardVersion version;
  DfuSeFile contents;
};

// What a package is made of, for whoever makes one.
// A place that gets firmware, or bytes that are all the same.
struct ElementDraft {
  u32 address = 0;
  u32 sizeBytes = 0;
  std::optional<u8> fill;  // of every byte; empty: firmware of the package's version
};

// The service writes the target for alternate setting 0 and no other.
struct TargetDraft {
  u8 alternateSetting = 0;
  std::vector<ElementDraft> elements;
};

struct PackageDraft {
  KeyboardVersion version = {1, 2, 2, 1};
  std::vector<TargetDraft> targets;
  std::string file = {};  // instead of all that: a package that is there already
};

// A package of the draft. A target's firmware is one image (see keyboard_image.h) in those of its
// elements that are not filled, in their order.
Package MakePackage(const PackageDraft& draft);

// Tells the version of what a flash holds: that of the first package of which all is there, else of
// an image of the simulator's own at the address. Nothing is empty.
std::function<std::optional<KeyboardVersion>(const NorFlash&)> VersionFinder(
    const std::vector<Package>& packages, u32 imageAddress);

// Whether the flash has a byte for each of the package's.
bool FitsFlash(const Package& package, const std::vector<FlashRegion>& flash);

// The memory that a keyboard has for the packages when nobody told a map.
std::vector<FlashRegion> FlashFor(const std::vector<Package>& packages);

// 128 KiB of firmware in two elements, made for the simulated keyboard.
Package DefaultPackage(const KeyboardVersion& version);

// Why a package cannot be used: one sentence that goes on from "is refused: ", and the exit code of
// a command that needs it.
struct PackageRefusal {
  std::string reason;
  int exitCode = 0;
};

// No keyboard's flash is as large as that, and none of it is read.
// Found out from the size alone, so that a mistaken file costs no time.
inline constexpr u64 LargestPackageBytes = u64{256} << 20;

// Reads the user's own package. Empty when the service would refuse it.
std::optional<Package> ReadPackage(const std::string& path, PackageRefusal& refusal);

// The two halves of that: the file with its name, version and bytes, and what is in the bytes.
// False when the service would refuse it for that half's sake.
bool ReadPackageFile(const std::string& path, Package& package, PackageRefusal& refusal);
bool ReadPackageContents(Package& package, PackageRefusal& refusal);

// The version of a keyboard for the package's model, one older where there is one.
KeyboardVersion OlderThan(KeyboardVersion version);

// The digits of a version as "1.2.3.4"; empty when the text is anything else.
std::optional<KeyboardVersion> ParseVersion(const std::string& text);
std::string VersionText(const KeyboardVersion& version);

}  // namespace simulator
