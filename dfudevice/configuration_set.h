// Looks into the bytes of a USB configuration descriptor set.
//
// Both operations take the bytes as the device sent them, setBytes of them, and trust none of the
// lengths inside. They touch nothing else and are called by the descriptor reading on any thread.
#pragma once

#include <cstddef>

#include "common/types.h"

// Counts the alternate settings of the set's first interface with several of them; 1 when there is
// no such interface. Only types and interface numbers are looked at, as far as they lie in the set.
// A length of 0 or 1, or one that reaches to the end of the set or beyond, ends the walk: makers
// leave odd lengths in the last descriptor, which nobody steps over.
//
// Returns 0 when the set gives no usable count: it is shorter than a configuration descriptor,
// claims more bytes than were read, or holds a second configuration descriptor.
u32 CountAlternateSettings(const u8* set, std::size_t setBytes);

// Takes wTransferSize, in bytes, from the DFU functional descriptor, the last nine bytes of the
// set.
//
// Returns false and leaves transferSize alone when the set is shorter than nine bytes or claims
// more bytes than were read.
bool FindTransferSize(const u8* set, std::size_t setBytes, u16& transferSize);
