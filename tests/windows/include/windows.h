// Windows' own header without the macro that takes a name away from the simulator.
#pragma once

#include_next <windows.h>

#undef Yield
