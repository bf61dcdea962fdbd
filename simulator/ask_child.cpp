#include "simulator/ask_child.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "simulator/host_folder.h"
#include "simulator/host_process.h"

namespace simulator {

namespace {

volatile std::sig_atomic_t childId = 0;
volatile std::sig_atomic_t interruptedBy = 0;

// Called in the midst of anything, so it does nothing that is not allowed there.
void EndChild(int signal) {
  interruptedBy = signal;
  kill(childId, SIGKILL);
}

// Signals that end a command wait while the child is made, so that none finds no child to end.
class Interruption {
 public:
  Interruption() {
    sigemptyset(&signals_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      sigaddset(&signals_, signal);
    }
    sigprocmask(SIG_BLOCK, &signals_, &before_);
  }
  void PassOn() {
    struct sigaction action = {};
    action.sa_handler = EndChild;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      sigaction(signal, &action, nullptr);
    }
    LetThrough();
  }
  void LetThrough() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

  // As if this process had been hit without a handler.
  void DieOfIt() {
    if (interruptedBy != 0) {
      std::signal(interruptedBy, SIG_DFL);
      std::raise(interruptedBy);
    }
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      std::signal(signal, SIG_DFL);
    }
  }

 private:
  sigset_t signals_{};
  sigset_t before_{};
};

// A pipe takes as much as it has room for, and a signal may come in between.
void WriteAll(int file, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t written = write(file, text.data() + done, text.size() - done);
    if (written < 0 && errno != EINTR) {
      return;
    }
    done += written < 0 ? 0 : static_cast<std::size_t>(written);
  }
}

// Until the child closes its end: by its answer's end, or by its own.
std::string ReadAll(int file) {
  std::string text;
  char chunk[4096];
  for (;;) {
    const ssize_t count = read(file, chunk, sizeof(chunk));
    if (count > 0) {
      text.append(chunk, static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return text;
    }
  }
}

// Threads of the simulated machine still stand where its end left them: no destructor may run.
[[noreturn]] void Answer(const std::function<Json(const std::string&)>& work,
                         const std::string& folder, int file) {
  Json answer;
  try {
    answer["result"] = work(folder);
  } catch (const std::exception& error) {
    answer = {{"error", error.what()}};
  }
  WriteAll(file, answer.dump(-1, ' ', false, Json::error_handler_t::replace));
  std::fflush(nullptr);
  _exit(0);
}

// Read before the child is waited for: an answer longer than the pipe would hold it up for ever.
// end tells how the child ended, as WaitForChild has it.
std::string AnswerOfChild(const std::function<Json(const std::string&)>& work,
                          const std::string& folder, std::string& end) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw std::runtime_error("cannot make a pipe");
  }
  Interruption interruption;
  const pid_t child = StartChild([&] {
    interruption.LetThrough();
    close(ends[0]);
    Answer(work, folder, ends[1]);
  });
  childId = child;
  close(ends[1]);
  if (child > 0) {
    interruption.PassOn();
  }
  const std::string text = ReadAll(ends[0]);
  close(ends[0]);
  // The child must be gone before its folder is.
  end = WaitForChild(child);
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
  interruption.DieOfIt();
  interruption.LetThrough();
  return text;
}

}  // namespace

Json AskChild(const std::function<Json(const std::string& driveFolder)>& work) {
  const HostFolder folder;
  std::string end;
  Json answer = Json::parse(AnswerOfChild(work, folder.path(), end), nullptr, false);
  if (answer.is_discarded()) {
    throw std::runtime_error("the simulated machine ended without an answer" +
                             (end.empty() ? "" : ", " + end));
  }
  if (answer.contains("error")) {
    throw std::runtime_error(answer["error"].get<std::string>());
  }
  return answer["result"];
}

}  // namespace simulator
