// The list of live images, against which image handles are tested before they are used.
//
// An image is registered by whoever made it and is destroyed through ReleaseImage from then on. The
// registry is guarded by the update lock.
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

// Tells whether the image is registered. Only compares the pointer, so it may be stale or null.
bool IsRegisteredImage(const DfuImage* image);
