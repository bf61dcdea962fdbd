// Fits images to the memory of the device: what is to be erased, what is to be written, and the
// blank image that the leave operation is given.
//
// The image preparation and the session driver call in under the update lock, which also keeps the
// map in place meanwhile.
#pragma once

#include "common/types.h"
#include "dfudevice/memory_map.h"
#include "dfufile/dfu_image.h"

// The most bytes that a blank image may hold in all. A device may state any sizes in its map, and
// no memory that is flashed over USB comes near.
inline constexpr u64 BlankImageMaxBytes = u64{256} << 20;

// Cuts a registered image to the selected sectors of a map that take part in an operation: with
// operationCode 3 (erase) it becomes the list of the erasable sectors that it touches, one element
// of size 0 for each in the map's order; with any other code each element is replaced by its pieces
// in the sectors that take part (4 the writable ones, 1 and 2 the readable ones, 0 none, 5 and
// above all).
//
// Returns StatusSuccess; StatusNoImage with the image untouched when the map is null or the image
// is not registered or not valid. When memory runs out on the way the result is StatusNoImage too
// and the image's Valid becomes 0, as an image that is half cut must not be erased or written by.
u32 FitImageToMemoryMap(DfuImage* image, const MemoryMap* map, u32 operationCode);

// Makes an image of 0xFF bytes that covers every selected sector of the map, an element for each,
// registers it and stores it through the handle.
//
// Returns StatusSuccess, or StatusNoImage with the handle as it was and nothing registered when the
// map is null, memory is short or the map asks for more than BlankImageMaxBytes.
u32 BlankImageFromMemoryMap(DfuImage** image, const MemoryMap* map);
