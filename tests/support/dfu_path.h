// The interface path of the simulated keyboard in DFU mode, as long as no option says otherwise.
#pragma once

inline constexpr char UsualDfuPath[] =
    "\\\\?\\usb#vid_1209&pid_0002#7&1a2b3c4d#{5cbc7cbe-c056-45bd-b422-0049d94d11e9}";
