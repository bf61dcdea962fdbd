// Looks into the bytes of a USB configuration descriptor set.
//
// Both operations take the bytes as the device sent them, setBytes of them, and trust none of the
// lengths inside. They touch nothing else and are called by the descriptor reading on any thread.
#pragma once

#include <cstddef>

#include "common/types.h"

// Counts the alternate settings of the first interface that has more than one, 1 when none has.
//
// Returns 0 when the set gives no usable count: it is shorter than a configuration descriptor,
// claims more bytes than were read, or the walk meets a descriptor that is shorter than its header
// or reaches beyond the set, an interface descriptor too short for its number, or a second
// configuration descriptor.
u32 CountAlternateSettings(const u8* set, std::size_t setBytes);

// Takes wTransferSize, in bytes, from the DFU functional descriptor, the last nine bytes of the
// set.
//
// Returns false and leaves transferSize alone when the set is shorter than nine bytes or claims
// more bytes than were read.
bool FindTransferSize(const u8* set, std::size_t setBytes, u16& transferSize);
