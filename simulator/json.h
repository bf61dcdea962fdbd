// What a command has to tell, in the order in which it is printed. Who makes or reads it includes
// <nlohmann/json.hpp> as well.
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace simulator {

using Json = nlohmann::ordered_json;

}  // namespace simulator
