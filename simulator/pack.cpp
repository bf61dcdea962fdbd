#include "simulator/pack.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "simulator/exit_codes.h"
#include "simulator/number_text.h"
#include "simulator/package.h"
#include "simulator/package_fit.h"
#include "simulator/package_warnings.h"

namespace simulator {

namespace {

constexpr char SampleVersion[] = "1.2.2.1";

PackResult Unreadable(const std::string& file, const std::string& why) {
  return {ExitBadArguments, file + ": " + why, 0};
}

// A file that no flash can hold is not read.
bool ReadWhole(const std::string& path, std::string& bytes) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error) ||
      std::filesystem::file_size(path, error) > LargestPackageBytes) {
    return false;
  }
  std::ifstream stream(path, std::ios::binary);
  bytes.assign(std::istreambuf_iterator<char>(stream), {});
  return stream.good() || stream.eof();
}

bool IsHexFile(const std::string& path) {
  return path.ends_with(".hex") || path.ends_with(".HEX");
}

// Splits "0x08000000:app.bin"; a HEX file carries its addresses itself.
// A path may hold a colon; an address does not, so the first one divides.
bool SplitPart(const std::string& part, u32& address, std::string& path) {
  const std::size_t colon = part.find(':');
  if (colon == std::string::npos) {
    path = part;
    return IsHexFile(path);
  }
  path = part.substr(colon + 1);
  const bool prefixed = part.starts_with("0x") || part.starts_with("0X");
  const char* const begin = part.data() + (prefixed ? 2 : 0);
  const auto read = std::from_chars(begin, part.data() + colon, address, 16);
  return prefixed && read.ec == std::errc() && read.ptr == part.data() + colon && !IsHexFile(path);
}

PackResult AppendPart(const std::string& part, std::vector<DfuSeElement>& elements) {
  u32 address = 0;
  std::string path;
  if (!SplitPart(part, address, path)) {
    return Unreadable(part, "takes 0xADDRESS:FILE of a binary, or FILE.hex");
  }
  std::string bytes;
  if (!ReadWhole(path, bytes)) {
    return Unreadable(path, "cannot be read, or is larger than any keyboard's flash");
  }
  if (!IsHexFile(path)) {
    elements.push_back({address, {bytes.begin(), bytes.end()}});
    return {};
  }
  std::string reason;
  const auto read = ReadIntelHex(bytes, reason);
  if (!read.has_value()) {
    return Unreadable(path, reason);
  }
  elements.insert(elements.end(), read->begin(), read->end());
  return {};
}

PackResult MakeTarget(const PackOptions& options, DfuSeTarget& target) {
  target = options.target;
  if (options.sample) {
    target.elements =
        TargetForUpdate(DefaultPackage(*ParseVersion(SampleVersion)).contents)->elements;
  }
  for (const std::string& part : options.parts) {
    const PackResult result = AppendPart(part, target.elements);
    if (result.exitCode != ExitDone) {
      return result;
    }
  }
  // As other tools write them; whoever checks the package is warned of any other order.
  std::stable_sort(
      target.elements.begin(), target.elements.end(),
      [](const DfuSeElement& one, const DfuSeElement& two) { return one.address < two.address; });
  u64 bytes = 0;
  for (const DfuSeElement& element : target.elements) {
    bytes += element.data.size();
    if (element.address + u64{element.data.size()} > u64{1} << 32) {
      return {ExitFailed, AddressText(element.address) + " runs past the end of memory", 0};
    }
  }
  const std::string overlap = OverlapText(target.elements);
  if (!overlap.empty()) {
    return {ExitFailed, overlap, 0};
  }
  return bytes == 0 ? PackResult{ExitFailed, "there is no firmware to pack", 0} : PackResult{};
}

// The service knows a package's version from its name alone.
PackResult CheckName(const PackOptions& options, const Package& package) {
  const std::string version = VersionText(package.version);
  if (!options.firmware.empty() && version != options.firmware) {
    return {ExitFailed,
            "its name would be read as version " + version + ", not " + options.firmware, 0};
  }
  const std::vector<std::string> warnings = NameWarnings(package);
  return options.firmware.empty() && !warnings.empty() ? PackResult{ExitFailed, warnings[0], 0}
                                                       : PackResult{};
}

// Written and read back under the name that it is to have, in a folder of its own beside its place.
PackResult WriteBeside(const PackOptions& options, const std::vector<u8>& bytes,
                       const std::filesystem::path& folder) {
  const std::filesystem::path beside = folder / std::filesystem::path(options.output).filename();
  std::ofstream stream(beside, std::ios::binary);
  stream.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  stream.close();
  if (!stream) {
    return Unreadable(options.output, "cannot be written");
  }
  PackageRefusal refusal;
  const auto package = ReadPackage(beside, refusal);
  if (!package.has_value()) {
    return {refusal.exitCode, refusal.reason, 0};
  }
  PackResult result = CheckName(options, *package);
  std::error_code error;
  if (result.exitCode == ExitDone) {
    std::filesystem::rename(beside, options.output, error);
  }
  return error ? Unreadable(options.output, error.message()) : result;
}

}  // namespace

PackResult Pack(const PackOptions& options) {
  DfuSeFile file{options.vendorId, options.productId, options.deviceVersion, {}, {}};
  PackResult result = MakeTarget(options, file.targets.emplace_back());
  if (result.exitCode != ExitDone) {
    return result;
  }
  const std::vector<u8> bytes = BuildDfuSe(file);
  std::string folder = options.output + ".XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) {
    return Unreadable(options.output, "cannot be written there");
  }
  result = WriteBeside(options, bytes, folder);
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
  result.bytes = bytes.size();
  return result;
}

}  // namespace simulator
