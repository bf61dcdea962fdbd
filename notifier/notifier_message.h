// The four words that the notifier understands, each its whole command line.
//
// A type of its own: nothing else can be told, and no text has to be measured or cut on the way.
#pragma once

#include <windows.h>

#include <cstddef>

class NotifierMessage {
 public:
  // Room for the longest word with its terminating zero, in characters.
  static constexpr std::size_t CapacityChars = sizeof("DISCONNECT");

  // The keyboard is about to be asked to restart in DFU mode.
  static const NotifierMessage Start;

  // There is newer firmware, but too little charge to begin.
  static const NotifierMessage Battery;

  // The keyboard did not take the request, could not be used in DFU mode, or its update failed.
  static const NotifierMessage Disconnect;

  // The keyboard was sent off to run its new firmware.
  static const NotifierMessage Complete;

  // The word, NUL-terminated. Copy the message to get one that may be written to.
  const WCHAR* text() const { return text_; }
  WCHAR* text() { return text_; }

 private:
  // A word that is too long for the array does not compile.
  template <std::size_t Chars>
  constexpr explicit NotifierMessage(const WCHAR (&word)[Chars]) : text_{} {
    static_assert(Chars <= CapacityChars);
    for (std::size_t i = 0; i < Chars; ++i) {
      text_[i] = word[i];
    }
  }

  WCHAR text_[CapacityChars];
};

inline constexpr NotifierMessage NotifierMessage::Start{TEXT("START")};
inline constexpr NotifierMessage NotifierMessage::Battery{TEXT("BATTERY")};
inline constexpr NotifierMessage NotifierMessage::Disconnect{TEXT("DISCONNECT")};
inline constexpr NotifierMessage NotifierMessage::Complete{TEXT("COMPLETE")};
