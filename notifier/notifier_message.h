// The words that the notifier understands, each its whole command line.
#pragma once

#include <windows.h>

namespace NotifierMessage {

// The update is about to begin: the keyboard is asked to restart in DFU mode.
inline constexpr WCHAR Start[] = TEXT("START");

// The update is refused because the battery is too low.
inline constexpr WCHAR Battery[] = TEXT("BATTERY");

// The keyboard did not enter DFU mode, its DFU device was not usable, or an operation failed.
inline constexpr WCHAR Disconnect[] = TEXT("DISCONNECT");

// The update has finished.
inline constexpr WCHAR Complete[] = TEXT("COMPLETE");

}  // namespace NotifierMessage
