#include "common/package_values.h"

WIN32_FIND_DATAA packageFolder = {};

// The same text as FileRepositoryPath, which a plain array cannot be initialised from.
char packagePath[PackagePathBytes] = "C:\\Windows\\System32\\DriverStore\\FileRepository\\";
