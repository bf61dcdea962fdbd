// Reads the firmware package, a DfuSe file: prefix, targets with their elements, suffix with a CRC.
//
// The image preparation has it open for as long as it looks for the target that it wants. It holds
// the update lock, which also guards the registry of open files.
#pragma once

#include "common/intrusive_list.h"
#include "common/status.h"
#include "common/types.h"
#include "dfufile/dfu_image.h"
#include "dfufile/file_stream.h"

// A file that is open and was found to be sound.
class DfuFile {
 public:
  DfuFile() = default;
  // Closes the stream.
  virtual ~DfuFile() = default;

  DfuFile(const DfuFile&) = delete;
  DfuFile& operator=(const DfuFile&) = delete;

  // The identifiers of the suffix. Nothing compares them with the device.
  u16 VendorId = 0;
  u16 ProductId = 0;
  u16 DeviceVersion = 0;
  u8 TargetCount = 0;

  FileStream Stream;
  // The size of the file, in bytes.
  u32 FileBytes = 0;
  // How the last reading of a target went.
  u32 Status = StatusSuccess;

  // Link of the file registry.
  DfuFile* nextInList = nullptr;
};

using DfuFileRegistry = IntrusiveList<DfuFile>;

// The open files.
extern DfuFileRegistry dfuFileRegistry;

// Opens and checks the file that packagePath names. On success *file is the new registered file,
// which the caller closes with CloseDfuFile, and *targetCount, unless targetCount is null, the
// number of its targets.
//
// Returns StatusSuccess; StatusFileNotOpened; or StatusBadFile when the prefix, the suffix or the
// CRC is wrong. Nothing stays open and both outputs are untouched after a failure; the debug output
// tells the reason.
u32 OpenDfuFile(DfuFile** file, u8* targetCount);

// Reads the target with this index, from 0, into a new image that the caller owns; it is not
// registered. Targets may be read in any order.
//
// Returns the status, also left in the file's Status: StatusSuccess; StatusBadFile when there is no
// such target or the file is not registered; StatusBadElements when its elements cannot be read or
// memory is short. *image is untouched after a failure. A read beyond the end of the file makes
// every later call for the same file fail with StatusBadFile.
u32 ReadTargetImage(DfuFile* file, u32 targetIndex, DfuImage** image);

// Closes a registered file, destroys it and takes it off the registry; does nothing for any other
// handle.
void CloseDfuFile(DfuFile* file);

// Tells whether the file is open. Only compares the pointer, so it may be stale or null.
bool IsRegisteredFile(const DfuFile* file);
