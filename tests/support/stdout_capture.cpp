#include "tests/support/stdout_capture.h"

#include <unistd.h>

#include <cstdio>

StdoutCapture::StdoutCapture() {
  std::fflush(stdout);
  start_ = lseek(STDOUT_FILENO, 0, SEEK_END);
}

std::string StdoutCapture::Text() const {
  std::string text(static_cast<std::size_t>(lseek(STDOUT_FILENO, 0, SEEK_END) - start_), '\0');
  const auto count = pread(STDOUT_FILENO, text.data(), text.size(), start_);
  text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return text;
}
