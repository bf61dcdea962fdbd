// Fits images to the memory of the device: what is to be erased, what is to be written, and the
// blank image that the leave operation is given.
//
// The image preparation and the session driver call in under the update lock, which also keeps the
// map in place meanwhile.
#pragma once

#include "common/types.h"
#include "dfudevice/memory_map.h"
#include "dfufile/dfu_image.h"

// How much a blank image may hold in all, in bytes, but for its first readable element, which may
// be of any size. A device may state any sizes in its map, and no memory that is flashed over USB
// comes near.
inline constexpr u64 BlankImageMaxBytes = u64{256} << 20;

// Cuts a registered image to a map for an operation (see operation_codes.h for the sectors that
// take part). For OperationErase it becomes the sectors to erase: those that it has bytes in, one
// element of size 0 for each, in the map's order. For any other code each element is replaced by
// its pieces in the sectors that take part, in the map's order.
//
// Takes time in proportion to elements, sectors and pieces, times the logarithm of either. The
// bytes of an element that lies whole in one sector are handed over to its piece, not copied.
//
// Returns StatusSuccess, or StatusNoImage with the image as it was: there is no map, the image is
// not registered or not valid, or memory was refused.
u32 FitImageToMemoryMap(DfuImage* image, const MemoryMap* map, u32 operationCode);

// Makes an image of 0xFF bytes with an element for each selected sector of the map, in the map's
// order, registers it and stores it through the handle.
//
// Returns StatusSuccess. StatusNoImage with an image stored all the same means that some sectors
// were passed over, as memory was refused for them or BlankImageMaxBytes were reached; there may be
// no element at all. StatusNoImage with the handle as it was means that there is no map or no
// memory for the image itself.
u32 BlankImageFromMemoryMap(DfuImage** image, const MemoryMap* map);
