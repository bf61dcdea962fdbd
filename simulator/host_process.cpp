#include "simulator/host_process.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace simulator {

pid_t StartChild(const std::function<void()>& body) {
  // What is still in the buffers would be written by both.
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    // Whoever waits for it may be ended first, and nobody else knows it.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    body();
    _exit(0);
  }
  return child;
}

std::string WaitForChild(pid_t child) {
  int status = 0;
  pid_t ended = -1;
  do {
    ended = child < 0 ? -1 : waitpid(child, &status, 0);
  } while (child >= 0 && ended < 0 && errno == EINTR);
  if (ended < 0) {
    return "no child process";
  }
  if (WIFSIGNALED(status)) {
    const char* const name = sigabbrev_np(WTERMSIG(status));
    return "killed by " + (name != nullptr ? std::string("SIG") + name
                                           : "signal " + std::to_string(WTERMSIG(status)));
  }
  return WEXITSTATUS(status) == 0 ? "" : "exit code " + std::to_string(WEXITSTATUS(status));
}

void SilenceStandardOutput() {
  std::fflush(stdout);
  const int nowhere = open("/dev/null", O_WRONLY);
  dup2(nowhere, STDOUT_FILENO);
  close(nowhere);
}

std::FILE* SplitConsole(bool toErrors, bool keepServiceOutput) {
  std::FILE* const console = fdopen(dup(toErrors ? STDERR_FILENO : STDOUT_FILENO), "w");
  // The service prints lines of its own to standard output, on a tablet for nobody. They would end
  // up in the midst of the JSON.
  if (!keepServiceOutput) {
    SilenceStandardOutput();
  } else if (toErrors) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
  }
  return console;
}

void* MapShared(std::size_t size) {
  void* const memory =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::runtime_error("the host has no memory to share with a child process");
  }
  return memory;
}

}  // namespace simulator
