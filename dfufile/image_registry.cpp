#include "dfufile/image_registry.h"

#include "common/status.h"

DfuImageRegistry dfuImageRegistry;

void RegisterImage(DfuImage** image) {
  if (*image != nullptr) {
    dfuImageRegistry.Append(**image);
  }
}

u32 ReleaseImage(DfuImage** image) {
  // Off the registry first, as the link to the next image stands in the image itself.
  if (!dfuImageRegistry.Remove(*image)) {
    return StatusNoImage;
  }
  delete *image;
  *image = nullptr;
  return StatusSuccess;
}

void DiscardImage(DfuImage** image) {
  ReleaseImage(image);
  *image = nullptr;
}

bool IsRegisteredImage(const DfuImage* image) {
  return dfuImageRegistry.Contains(image);
}
