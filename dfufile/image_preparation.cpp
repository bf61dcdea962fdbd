#include "dfufile/image_preparation.h"

#include <windows.h>

#include "common/debug_output.h"
#include "common/status.h"
#include "dfudevice/memory_map.h"
#include "dfuengine/dfu_protocol.h"
#include "dfuengine/operation_thread.h"
#include "dfuengine/session_values.h"
#include "dfuengine/update_session.h"
#include "dfufile/dfu_file.h"
#include "dfufile/dfu_image.h"
#include "dfufile/image_cuts.h"
#include "dfufile/image_registry.h"

namespace {

// The first readable target for alternate setting 0, registered, or null.
DfuImage* ChooseTarget(DfuFile* file, u8 targetCount) {
  for (u32 index = 0; index < targetCount; ++index) {
    DfuImage* image = nullptr;
    if (!IsRegisteredFile(file) || ReadTargetImage(file, index, &image) != StatusSuccess) {
      continue;
    }
    RegisterImage(&image);
    if (image->AlternateSetting == 0) {
      return image;
    }
    ReleaseImage(&image);
  }
  return nullptr;
}

DfuImage* ReadPackageTarget() {
  DfuFile* file = nullptr;
  u8 targetCount = 0;
  if (OpenDfuFile(&file, &targetCount) != StatusSuccess) {
    return nullptr;
  }
  DfuImage* target = ChooseTarget(file, targetCount);
  CloseDfuFile(file);
  return target;
}

// Whether every element can be sent with the block numbers that there are. A transfer size of 0 is
// refused by the launch.
bool BlocksCanBeNumbered(const DfuImage& image, u16 transferSize) {
  for (u32 index = 0; transferSize != 0 && index < image.Elements.size(); ++index) {
    if (BlockCount(image.Elements[index].Size, transferSize) > MaximumDataBlocks) {
      return false;
    }
  }
  return true;
}

// Copies the target before either cut and makes of the copy what is to be written. False when there
// is no such image or it could not be sent to its end: a keyboard must not be erased for it.
bool MakeUpgradeImage(const DfuImage* target) {
  DfuImage* copy = CloneImage(target);
  if (copy == nullptr || copy->Valid == 0) {
    delete copy;
    return false;
  }
  RegisterImage(&copy);
  upgradeImage = copy;
  return FitImageToMemoryMap(upgradeImage, memoryMapTable.maps, OperationDownload) ==
             StatusSuccess &&
         BlocksCanBeNumbered(*upgradeImage, memoryMapTable.transferSize);
}

}  // namespace

void PrepareTargetImage() {
  ReleaseLeftoverImages();

  DfuImage* target = ReadPackageTarget();
  if (target != nullptr) {
    DiscardImage(&upgradeImage);
    if (MakeUpgradeImage(target) &&
        FitImageToMemoryMap(target, memoryMapTable.maps, OperationErase) == StatusSuccess) {
      LaunchErase(target);
      return;
    }
    DiscardImage(&upgradeImage);
    DiscardImage(&target);
  }
  WriteDebugText(TEXT("Unable to find data for that device/target from the file ..."));
}
