#include "simulator/service_view.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "common/status.h"
#include "dfudevice/memory_map_parser.h"
#include "dfuengine/dfu_protocol.h"
#include "dfufile/dfu_file.h"
#include "dfufile/image_cuts.h"
#include "dfufile/image_registry.h"
#include "dfufile/operation_codes.h"
#include "service/package_location.h"
#include "simulator/tablet.h"

namespace simulator {

namespace {

// From the service's own records of the image, not from the file: a wrong reading of the service
// would show here.
Json DescribeTarget(const DfuImage& image) {
  Json elements = Json::array();
  for (u32 i = 0; i < image.Elements.size(); ++i) {
    elements.push_back({{"address", image.Elements[i].Address}, {"bytes", image.Elements[i].Size}});
  }
  return {{"alternateSetting", image.AlternateSetting},
          {"name", std::string(image.Name)},
          {"elements", elements}};
}

// Of all elements, whether they overlap or not, as the service counts them.
u64 BytesOf(const DfuImage& image) {
  u64 bytes = 0;
  for (u32 i = 0; i < image.Elements.size(); ++i) {
    bytes += image.Elements[i].Size;
  }
  return bytes;
}

// Each element begins a block of its own.
u64 BlocksOf(const DfuImage& image, u16 transferSize) {
  u64 blocks = 0;
  for (u32 i = 0; i < image.Elements.size(); ++i) {
    blocks += BlockCount(image.Elements[i].Size, transferSize);
  }
  return blocks;
}

// How many bytes of a sector the image writes; what overlaps is counted once for each element.
u64 BytesWithin(const DfuImage& image, const MemorySector& sector) {
  u64 bytes = 0;
  for (u32 i = 0; i < image.Elements.size(); ++i) {
    const u32 address = image.Elements[i].Address;
    bytes += address >= sector.address && address - sector.address < sector.size
                 ? image.Elements[i].Size
                 : 0;
  }
  return std::min<u64>(bytes, sector.size);
}

// The target's two cuts, in the order in which the preparation makes them.
// The preparation cuts the image twice, once for writing and once into whole sectors for the erase.
Json PlanFor(DfuImage* target, const MemoryMap& map, u16 transferSize) {
  const u64 inAll = BytesOf(*target);
  DfuImage* written = CloneImage(target);
  RegisterImage(&written);
  if (FitImageToMemoryMap(written, &map, OperationDownload) != StatusSuccess ||
      FitImageToMemoryMap(target, &map, OperationErase) != StatusSuccess) {
    return {};
  }
  u64 erased = 0;
  u64 erasedOnly = 0;
  for (u32 i = 0; i < target->Elements.size(); ++i) {
    for (u32 j = 0; j < map.sectorCount; ++j) {
      const MemorySector& sector = map.sectors[j];
      if (sector.address == target->Elements[i].Address) {
        erased += sector.size;
        erasedOnly += sector.size - BytesWithin(*written, sector);
        break;
      }
    }
  }
  return {{"sectorsErased", target->Elements.size()},
          {"bytesErased", erased},
          {"bytesWritten", BytesOf(*written)},
          {"bytesDropped", inAll - BytesOf(*written)},
          {"bytesErasedOnly", erasedOnly},
          {"blocks", BlocksOf(*written, transferSize)}};
}

// All targets up to the first that cannot be read; the first for alternate setting 0 is *taken.
Json ReadTargets(DfuFile* file, u8 count, DfuImage** taken) {
  Json targets = Json::array();
  for (u32 index = 0; index < count; ++index) {
    DfuImage* image = nullptr;
    if (ReadTargetImage(file, index, &image) != StatusSuccess) {
      break;
    }
    RegisterImage(&image);
    targets.push_back(DescribeTarget(*image));
    if (image->AlternateSetting == 0 && *taken == nullptr) {
      *taken = image;
    } else {
      ReleaseImage(&image);
    }
  }
  return targets;
}

}  // namespace

Json ReadAsService(const std::string& driveFolder, const std::string& fileName,
                   const std::vector<u8>& bytes, const std::string& mapText, u16 transferSize) {
  Tablet tablet({.scheduler = {}, .driveFolder = driveFolder});
  tablet.InstallPackage(fileName, bytes);
  // The same calls in the same order as at start-up, on a drive that holds this one package.
  SelectPackageFolder();
  Json view{{"accepted", false}};
  DfuFile* file = nullptr;
  u8 count = 0;
  if (ReadPackageVersion() == 0 || FindPackageDfuFile() == 0 ||
      OpenDfuFile(&file, &count) != StatusSuccess) {
    return view;
  }
  view["vendorId"] = file->VendorId;
  view["productId"] = file->ProductId;
  DfuImage* taken = nullptr;
  view["targets"] = ReadTargets(file, count, &taken);
  CloseDfuFile(file);
  view["accepted"] = taken != nullptr && BytesOf(*taken) != 0;

  MemoryMap map{};
  if (taken != nullptr && !mapText.empty() &&
      ParseMemoryMap(mapText.data(), mapText.size(), map) == 1) {
    view["plan"] = PlanFor(taken, map, transferSize);
  }
  return view;
}

}  // namespace simulator
