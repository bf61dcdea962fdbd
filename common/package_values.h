// Where the firmware package lies: values that service/ fills and the folders below it read.
//
// packageFolder is written once, before the service hears of any device, and is read without a
// lock afterwards. packagePath is rewritten by every search for the package; the update lock guards
// it (see update_lock.h).
#pragma once

#include <windows.h>

#include <cstddef>

// The folder of the system's driver store that holds all driver package folders, with its "\".
inline constexpr char FileRepositoryPath[] = "C:\\Windows\\System32\\DriverStore\\FileRepository\\";
inline constexpr std::size_t FileRepositoryPathBytes = 47;
static_assert(sizeof(FileRepositoryPath) == FileRepositoryPathBytes + 1);

// Room for an ANSI path with its terminating zero.
inline constexpr std::size_t PackagePathBytes = 260;

// What the search told of the folder that was taken; all zero before.
extern WIN32_FIND_DATAA packageFolder;

// Starts with FileRepositoryPath, which never changes. After the package has been found it is the
// full path of the .dfu file. Always terminated.
extern char packagePath[PackagePathBytes];
