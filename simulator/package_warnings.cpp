#include "simulator/package_warnings.h"

#include <algorithm>
#include <cctype>

#include "common/firmware_version.h"
#include "simulator/dfu_descriptors.h"
#include "simulator/keyboard_options.h"
#include "simulator/memory_map.h"
#include "simulator/number_text.h"
#include "simulator/package_fit.h"

namespace simulator {

namespace {

constexpr u16 AnyId = 0xFFFF;

using Lines = std::vector<std::string>;

// The name may end before that place.
bool IsDigitAt(const std::string& name, std::size_t position) {
  return position < name.size() && std::isdigit(static_cast<unsigned char>(name[position])) != 0;
}

// The service does not compare these ids. Other tools refuse a file that is not for the device at
// hand.
void LookAtIds(const DfuSeFile& file, const std::vector<KeyboardId>& ids, Lines& lines) {
  const bool fits = std::any_of(ids.begin(), ids.end(), [&](const KeyboardId& id) {
    return (file.vendorId == id.vendorId || file.vendorId == AnyId) &&
           (file.productId == id.productId || file.productId == AnyId);
  });
  if (!fits) {
    lines.push_back(
        "the suffix names another device: pack it with the keyboard's vendor and "
        "product id, or FFFF for any");
  }
}

// The service writes what it finds, in the order in which it finds it.
void LookAtElements(const DfuSeTarget& target, Lines& lines) {
  const std::string overlap = OverlapText(target.elements);
  if (!overlap.empty()) {
    lines.push_back(overlap + ": the flash can hold only one of them; make them one element");
  }
  bool unordered = false;
  for (std::size_t i = 0; i < target.elements.size(); ++i) {
    const DfuSeElement& element = target.elements[i];
    if (element.address + u64{element.data.size()} > AddressSpaceEnd) {
      lines.push_back("the element at " + AddressText(element.address) +
                      " runs past the end of the address space: look at its address");
    }
    unordered = unordered || (i > 0 && element.address < target.elements[i - 1].address);
  }
  if (unordered) {
    lines.push_back("its elements are not in the order of their addresses: sort them");
  }
}

// The service stops at the first one that fits.
void LookAtTargets(const DfuSeFile& file, Lines& lines) {
  if (std::count_if(file.targets.begin(), file.targets.end(),
                    [](const DfuSeTarget& target) { return target.alternateSetting == 0; }) > 1) {
    lines.push_back(
        "it holds a second target for alternate setting 0, which is never written: "
        "leave it out");
  }
}

}  // namespace

// The places count, so a longer number beside one of them is cut without a word.
Lines NameWarnings(const Package& package) {
  Lines lines;
  const std::string& name = package.fileName;
  const std::string read = "the name is read as version " + VersionText(package.version);
  if (IsDigitAt(name, MajorPosition - 1) || IsDigitAt(name, HwRevPosition + 1)) {
    lines.push_back(read + ": another digit stands beside it; put the digits at 10, 12, 14 and 16");
  }
  for (std::size_t at = MajorPosition + 1; at < HwRevPosition; at += 2) {
    if (name[at] != '.') {
      lines.push_back(read + ": write dots between its digits, as in VantrelKb_1.2.3.4.dfu");
      break;
    }
  }
  return lines;
}

std::vector<KeyboardId> UsualKeyboardIds() {
  return {{KeyboardVendorId, KeyboardProductId},
          {KeyboardVendorId, KeyboardOptions{}.dfuProductId}};
}

Lines PackageWarnings(const Package& package, const std::vector<KeyboardId>& ids) {
  Lines lines = NameWarnings(package);
  LookAtIds(package.contents, ids, lines);
  LookAtElements(*TargetForUpdate(package.contents), lines);
  LookAtTargets(package.contents, lines);
  for (const std::string& note : package.contents.notes) {
    lines.push_back(note + ": other tools will refuse it; make it anew");
  }
  if (MemoryMapText(KeyboardOptions{}.flashName, FlashFor({package})).size() > LongestStringChars) {
    lines.push_back(
        "its elements lie too far apart for one memory map to tell all their places: "
        "give the keyboard's own with --map");
  }
  return lines;
}

}  // namespace simulator
