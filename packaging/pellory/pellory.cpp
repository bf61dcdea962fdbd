// Pellory.exe: tells the user what happens to the keyboard.
//
// The service starts it on the user's desktop with one word as the whole command line, no program
// name in front, and does not wait for it. It stands in for a maker's own notifier, which only has
// to understand the same four words. Exit code 0 when a sentence was shown, 1 when nothing was.
#include <windows.h>

namespace {

struct Message {
  const WCHAR* word;
  const WCHAR* sentence;
  UINT icon;
};

constexpr Message Messages[] = {
    {TEXT("START"),
     TEXT("Your keyboard is being updated. Please do not detach it until you are told that it is "
          "done."),
     MB_ICONINFORMATION},
    {TEXT("BATTERY"),
     TEXT(
         "An update for your keyboard is waiting. Please charge your tablet to at least 30 percent "
         "and attach the keyboard again."),
     MB_ICONWARNING},
    {TEXT("DISCONNECT"),
     TEXT("Your keyboard could not be updated. Please detach it and attach it again."),
     MB_ICONWARNING},
    {TEXT("COMPLETE"), TEXT("Your keyboard has been updated and is ready to use."),
     MB_ICONINFORMATION},
};

const Message* FindMessage(const WCHAR* word) {
  for (const Message& message : Messages) {
    if (lstrcmpW(message.word, word) == 0) {
      return &message;
    }
  }
  return nullptr;
}

}  // namespace

int main() {
  // Arguments lack the first word, which the C library takes for the program's name.
  const Message* const message = FindMessage(GetCommandLineW());
  if (message == nullptr) {
    return 1;
  }
  const int answer = MessageBoxW(nullptr, message->sentence, TEXT("Keyboard update"),
                                 MB_OK | MB_TOPMOST | MB_SETFOREGROUND | message->icon);
  return answer != 0 ? 0 : 1;
}
