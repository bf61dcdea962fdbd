// Where the firmware package lies: the service's driver package folder in the driver store and the
// .dfu file in it, whose name carries the package's version.
//
// SelectPackageFolder runs once, in the start-up sequence, before anything reads packageFolder. The
// other two run under the update lock, which guards packagePath, on the service entry's thread, the
// notification threads and TickThread; both search anew each time and take the first .dfu file that
// the file system lists.
#pragma once

#include "common/firmware_version.h"
#include "common/types.h"

// The version in the .dfu file's name, as ReadPackageVersion read it last; all zero before. Guarded
// by the decision's lock: only decisions read the version.
extern FirmwareVersion packageVersion;

// Copies the find record of the newest driver package folder into packageFolder: the latest
// creation time wins, between equal ones the latest write time, then the one listed first. No match
// leaves packageFolder as it is.
void SelectPackageFolder();

// Reads packageVersion from the name of the .dfu file. Returns 1 when it holds four digits 0 to 9.
// Returns 0 when one of them is none (packageVersion then holds what was read) or when no file was
// found (packageVersion is then unchanged). packagePath ends with the folder and its backslash.
i32 ReadPackageVersion();

// Leaves the full path of the .dfu file in packagePath, at most 259 characters and a NUL, and
// returns 1. Returns 0 when no file was found; packagePath then ends with the folder and its
// backslash.
//
// A folder name of more than 206 characters or a full path of more than 259 counts as nothing found
// in both operations, so that no keyboard is sent into DFU mode for a package that cannot be opened
// afterwards.
i32 FindPackageDfuFile();
