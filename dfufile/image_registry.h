// Which images there are, so that a handle can be tested before it is followed.
//
// Whoever has made an image registers it; from then on ReleaseImage and DiscardImage are the ways
// to destroy it. The update lock guards the registry.
#pragma once

#include "common/intrusive_list.h"
#include "common/types.h"
#include "dfufile/dfu_image.h"

using DfuImageRegistry = IntrusiveList<DfuImage>;

// The live images in the order in which they were registered.
extern DfuImageRegistry dfuImageRegistry;

// Appends the image that the handle names to the registry. A null handle changes nothing, and an
// image that is registered already keeps its one place: listed twice, it would outlive its release
// there.
void RegisterImage(DfuImage** image);

// Destroys the image that the handle names, takes it off the registry and sets the handle to null;
// other copies of the handle are for their holders to clear.
//
// Returns StatusSuccess, or StatusNoImage with the handle as it was when the image is not
// registered.
u32 ReleaseImage(DfuImage** image);

// As ReleaseImage, but the handle is null afterwards in any case, also when it was null or named an
// image that is not registered.
void DiscardImage(DfuImage** image);

// Tells whether the image is registered. Only compares the pointer, so it may be stale or null.
bool IsRegisteredImage(const DfuImage* image);
