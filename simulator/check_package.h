// vantrel-sim check FILE.dfu...: whether the service would take a firmware package, what is in it,
// and what becomes of a keyboard's memory.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "simulator/json.h"
#include "simulator/keyboard_options.h"
#include "simulator/package_warnings.h"

namespace simulator {

// Which keyboard to think of, and how strict to be.
struct CheckOptions {
  KeyboardOptions keyboard;
  std::string mapText;  // of its alternate setting 0; without it there is no plan
  std::vector<KeyboardId> keyboardIds = UsualKeyboardIds();
  bool strict = false;  // a warning refuses the file, too
};

// What is known of one file; "exitCode" is the command's. Each file gets child processes of its
// own. Throws what AskChild throws.
Json CheckPackage(const std::string& path, const CheckOptions& options);

// The same for people: the contents go to out, a refusal to complaints.
void PrintCheck(const Json& check, std::FILE* out, std::FILE* complaints);

}  // namespace simulator
