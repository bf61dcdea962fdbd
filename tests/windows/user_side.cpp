// The user of a run under Wine, in two programs that are copies of this one. As explorer.exe it is
// there, which is how the service knows the user's session; as Pellory.exe it logs the word that is
// its command line.
#include <windows.h>

#include <cstring>

#include "tests/windows/run_log.h"

int main() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  if (std::strstr(path, "explorer.exe") != nullptr) {
    Sleep(INFINITE);
  }
  Log(std::string("user is told ") + GetCommandLineA());
  return 0;
}
