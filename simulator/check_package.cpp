#include "simulator/check_package.h"

#include "simulator/package.h"

namespace simulator {

namespace {

void PrintTarget(const DfuSeTarget& target, std::FILE* out) {
  std::fprintf(out, "target for alternate setting %u, %zu element%s\n", target.alternateSetting,
               target.elements.size(), target.elements.size() == 1 ? "" : "s");
  for (const DfuSeElement& element : target.elements) {
    std::fprintf(out, "  0x%08X %zu bytes\n", element.address, element.data.size());
  }
}

}  // namespace

int CheckPackage(const std::string& path, std::FILE* out, std::FILE* complaints) {
  std::string reason;
  const auto package = ReadPackage(path, reason);
  if (!package.has_value()) {
    std::fprintf(complaints, "vantrel-sim: %s is refused: %s\n", path.c_str(), reason.c_str());
    return 1;
  }
  // packaging/make-package reads the first two lines.
  const DfuSeFile& contents = package->contents;
  std::fprintf(out, "version %s\n", VersionText(package->version).c_str());
  std::fprintf(out, "device VID_%04X&PID_%04X\n", contents.vendorId, contents.productId);
  for (const DfuSeTarget& target : contents.targets) {
    PrintTarget(target, out);
  }
  return 0;
}

}  // namespace simulator
