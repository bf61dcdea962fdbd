// A HID collection of the keyboard as one line of a scenario: its usage page and usage, and what it
// has other than by itself, for instance `1 6 in 9 out 2 keyboards 1 product "Keys 1.2.3.4"`.
#pragma once

#include <string>

#include "simulator/keyboard_options.h"

namespace simulator {

// Tells only what is other than by itself.
std::string CollectionText(const HidCollectionOptions& collection);

// False when the text is no collection; the collection is of no use then.
bool ReadCollectionText(const std::string& text, HidCollectionOptions& collection);

}  // namespace simulator
