// A firmware package as the service's own code sees it: whether it finds the file and reads a
// target from it, and what its cuts make of that target on a given memory.
#pragma once

#include <string>

#include "simulator/json.h"
#include "simulator/package.h"

namespace simulator {

// Puts the package on a tablet of its own, so once per process, and asks the service's code.
//
// "accepted" tells whether it is taken; then "vendorId", "productId" and "targets", each with
// "alternateSetting", "name" and "elements". With a map and a target there is "plan":
// "sectorsErased", "bytesErased", "bytesWritten", "bytesDropped", "bytesErasedOnly" and "blocks".
// mapText may be empty, else it is a sound map; transferSize is not 0.
Json ReadAsService(const std::string& driveFolder, const std::string& fileName,
                   const std::vector<u8>& bytes, const std::string& mapText, u16 transferSize);

}  // namespace simulator
