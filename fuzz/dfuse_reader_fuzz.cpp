// The firmware package: opened, and every target read, from a file with any contents.
//
// The simulator's own reader must take the same files: it explains a refusal to people.
//
// The first byte decides whether the CRC is made to fit, so that what lies behind it is reached.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/package_values.h"
#include "common/status.h"
#include "dfufile/dfu_file.h"
#include "dfufile/dfu_image.h"
#include "fuzz/fuzz_tablet.h"
#include "simulator/dfuse_file.h"

namespace {

constexpr char PackageName[] = "p.dfu";

// Whether there is one for alternate setting 0.
bool ReadTargets(DfuFile* file, u8 targetCount) {
  bool taken = false;
  for (u32 target = 0; target <= targetCount; ++target) {
    DfuImage* image = nullptr;
    const u32 status = ReadTargetImage(file, target, &image);
    if ((status == StatusSuccess) != (image != nullptr)) {
      std::abort();
    }
    taken = taken || (target < targetCount && image != nullptr && image->AlternateSetting == 0);
    delete image;
  }
  return taken;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  std::vector<u8> bytes(data + 1, data + size);
  if (data[0] % 4 != 0) {
    simulator::SealDfuSe(bytes);
  }
  simulator::Tablet& tablet = FuzzTablet();
  tablet.machine().drive.WriteFile(std::string(FileRepositoryPath) + PackageName, bytes.data(),
                                   bytes.size());
  std::snprintf(packagePath, sizeof(packagePath), "%s%s", FileRepositoryPath, PackageName);

  DfuFile* file = nullptr;
  u8 targetCount = 0;
  bool taken = false;
  if (OpenDfuFile(&file, &targetCount) == StatusSuccess) {
    taken = ReadTargets(file, targetCount);
    CloseDfuFile(file);
  }
  // The simulator's reader is another one, and of the same mind.
  std::string reason;
  if (simulator::ReadDfuSe(bytes, reason).has_value() != taken) {
    std::abort();
  }
  return 0;
}
