// What the service takes without a word and its owner would rather have known.
#pragma once

#include <string>
#include <vector>

#include "simulator/package.h"

namespace simulator {

// As the suffix of a package has them. FFFF stands for any.
struct KeyboardId {
  u16 vendorId = 0;
  u16 productId = 0;
};

// Those of the keyboard that this build is for, in either mode.
std::vector<KeyboardId> UsualKeyboardIds();

// One line each, with what to do about it. The ids are those that the suffix may name.
std::vector<std::string> PackageWarnings(const Package& package,
                                         const std::vector<KeyboardId>& ids = UsualKeyboardIds());

// Those that the file's name alone gives rise to.
std::vector<std::string> NameWarnings(const Package& package);

}  // namespace simulator
