#include "tests/support/stdout_capture.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

StdoutCapture::StdoutCapture() {
  std::string name = (std::filesystem::temp_directory_path() / "vantrel-out-XXXXXX").string();
  std::fflush(stdout);
  original_ = dup(STDOUT_FILENO);
  file_ = mkstemp(name.data());
  unlink(name.c_str());
  dup2(file_, STDOUT_FILENO);
}

StdoutCapture::~StdoutCapture() {
  std::fflush(stdout);
  dup2(original_, STDOUT_FILENO);
  close(original_);
  // What a failing test says about itself is among it.
  const std::string text = Text();
  std::fwrite(text.data(), 1, text.size(), stdout);
  close(file_);
}

std::string StdoutCapture::Text() const {
  std::string text(static_cast<std::size_t>(lseek(file_, 0, SEEK_END)), '\0');
  const auto count = pread(file_, text.data(), text.size(), 0);
  text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return text;
}
