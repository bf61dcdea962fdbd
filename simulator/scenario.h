// A scenario: a keyboard, a package and the tablet's state, told and read as `name = value` lines.
//
//     keyboard = 1.1.2.1
//     map = "@Internal Flash  /0x08000000/04*016Kg,01*064Kg"
//     transfer-size = 1024
//     package = 1.2.2.1
//     target = 0: 0x08000000 49152, 0x08010000 2000 fill 255
//     battery = 80
//
// Who has settings of its own on top of these (troubles, say) puts them into a table beside this
// one. What a keyboard has and the lines do not tell: its place, its ids, its DFU device's path and
// description, and a way of its own to find a version.
#pragma once

#include <span>
#include <string>

#include "simulator/keyboard_options.h"
#include "simulator/package.h"
#include "simulator/setting_lines.h"

namespace simulator {

struct Scenario {
  KeyboardOptions keyboard;
  PackageDraft packageDraft;

  // 0 to 100, or 255 for a charge that Windows cannot tell.
  u8 batteryPercent = 80;

  // Whether session 1 has a user and a shell when the service starts. Without them there is nobody
  // to whom the service could tell a word.
  bool userLoggedOn = true;

  // When the keyboard is plugged in first; 0: before the service starts.
  u64 attachMs = 0;

  // Draws which thread goes next, the same number the same; 0: in a fixed order.
  u64 schedulerSeed = 0;
};

// The table of all names, in the order in which they are told. It lives as long as the program.
std::span<const Setting<Scenario>> ScenarioSettings();

}  // namespace simulator
