// What the search for the keyboard writes first.
#pragma once

inline constexpr char Looking[] =
    "\n....looking for our HID device (with UP=0x0001 and Usage=0x00)\n";
