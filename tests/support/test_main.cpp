#include "tests/support/test_main.h"

#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace {

constexpr int MostFailures = 3;   // of a test that are shown
constexpr int MostLines = 12;     // of a failure
constexpr int MostKeptLines = 5;  // of what a failed test wrote to standard output
constexpr std::size_t MostColumns = 400;

// Far more than the slowest test takes; a slower build sets VANTREL_TEST_SECONDS. Processor time
// tells a loop without an end, whatever else the host is doing. The rest is for a test that sleeps.
constexpr int UsualSeconds = 5;
constexpr int RealSecondsForOne = 6;

// What a signal handler reads, too.
int screen = -1;  // standard output as the caller gave it
char testName[200];
char testPlace[400];
bool hasFailed = false;
char program[400];
char kept[8 * 1024];

void Say(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(screen, text.data(), text.size());
    if (count <= 0) {
      return;
    }
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

void SayLine(const char* before, std::string_view line) {
  Say(before);
  Say(line.substr(0, MostColumns));
  Say(line.size() > MostColumns ? " ...\n" : "\n");
}

// The last lines that went to standard output, the very last one first.
void SayKept() {
  const off_t end = lseek(STDOUT_FILENO, 0, SEEK_END);
  const off_t start = std::max<off_t>(0, end - static_cast<off_t>(sizeof(kept)));
  const ssize_t count = pread(STDOUT_FILENO, kept, sizeof(kept), start);
  std::string_view text(kept, static_cast<std::size_t>(std::max<ssize_t>(0, count)));
  for (int line = 0; line < MostKeptLines && !text.empty(); ++line) {
    if (line == 0) {
      Say("written to standard output, last line first:\n");
    }
    text.remove_suffix(text.back() == '\n' ? 1 : 0);
    const std::size_t begin = text.rfind('\n') + 1;  // 0 when there is none
    SayLine("  ", text.substr(begin));
    text = text.substr(0, begin);
  }
}

void SayEnd() {
  Say("to run it again: ");
  Say(program);
  Say(" --gtest_filter='");
  Say(testName);
  Say("'\n");
  SayKept();
}

// Begins what a failed test says.
void SayBegin() {
  if (!std::exchange(hasFailed, true)) {
    Say(testPlace);
    Say(": ");
    Say(testName);
    Say(" failed\n");
  }
}

void OnSignal(int number) {
  switch (number) {
    case SIGALRM:
    case SIGPROF:
      EndTest("does not end");
    case SIGABRT:
      EndTest("aborted");
    default:
      EndTest("used memory that is not there");
  }
}

void LimitTime(int seconds) {
  itimerval limit{};
  limit.it_value.tv_sec = seconds;
  setitimer(ITIMER_PROF, &limit, nullptr);
  alarm(static_cast<unsigned>(seconds * RealSecondsForOne));
}

// A place in the sources as one types it, whatever folder the compiler was started in.
std::string Place(const char* fileName, int line) {
  std::string file = fileName == nullptr ? "somewhere" : fileName;
  if (file.starts_with(VANTREL_ROOT "/")) {
    file.erase(0, sizeof(VANTREL_ROOT));
  }
  return file + ":" + std::to_string(line);
}

// Says nothing of a test that passes.
class ShortReport : public testing::EmptyTestEventListener {
 public:
  void OnTestProgramStart(const testing::UnitTest&) override {
    std::fflush(stdout);
    screen = dup(STDOUT_FILENO);
    std::FILE* const file = std::tmpfile();
    if (screen < 0 || file == nullptr || dup2(fileno(file), STDOUT_FILENO) < 0) {
      std::perror("cannot keep standard output back");
      std::exit(2);
    }
    const char* const given = std::getenv("VANTREL_TEST_SECONDS");
    seconds_ = given == nullptr ? UsualSeconds : std::max(1, std::atoi(given));
  }

  void OnTestStart(const testing::TestInfo& test) override {
    std::snprintf(testName, sizeof(testName), "%s.%s", test.test_suite_name(), test.name());
    std::snprintf(testPlace, sizeof(testPlace), "%s", Place(test.file(), test.line()).c_str());
    hasFailed = false;
    failures_ = 0;
    LimitTime(seconds_);
  }

  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (!result.failed() || ++failures_ > MostFailures) {
      return;
    }
    SayBegin();
    SayLine("", Place(result.file_name(), result.line_number()) + ":");
    std::string_view message = result.message();
    for (int line = 0; line < MostLines && !message.empty(); ++line) {
      const std::size_t end = std::min(message.find('\n'), message.size());
      SayLine("  ", message.substr(0, end));
      message.remove_prefix(std::min(end + 1, message.size()));
    }
  }

  void OnTestEnd(const testing::TestInfo&) override {
    LimitTime(0);
    std::fflush(stdout);
    if (failures_ > MostFailures) {
      Say("and " + std::to_string(failures_ - MostFailures) + " more failures\n");
    }
    if (failures_ > 0) {
      SayEnd();
    }
  }

  void OnTestProgramEnd(const testing::UnitTest& all) override {
    Say(std::to_string(all.successful_test_count()) + " passed, " +
        std::to_string(all.failed_test_count()) + " failed\n");
  }

 private:
  int seconds_ = 0;
  int failures_ = 0;
};

// A sanitizer that tells more about a signal keeps it.
void HandleSignals() {
  for (const int number : {SIGALRM, SIGPROF, SIGABRT, SIGSEGV, SIGBUS, SIGFPE}) {
    struct sigaction action {};
    if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
      action.sa_handler = OnSignal;
      sigaction(number, &action, nullptr);
    }
  }
}

}  // namespace

void EndTest(const char* why) {
  SayBegin();
  SayLine("  ", why);
  SayEnd();
  _exit(1);
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  std::snprintf(program, sizeof(program), "%s", argv[0]);
  testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
  delete listeners.Release(listeners.default_result_printer());
  listeners.Append(new ShortReport);
  HandleSignals();
  return RUN_ALL_TESTS();
}
