// What the process writes to standard output while the object lives. It is written when it goes.
#pragma once

#include <string>

class StdoutCapture {
 public:
  StdoutCapture();
  ~StdoutCapture();
  StdoutCapture(const StdoutCapture&) = delete;
  StdoutCapture& operator=(const StdoutCapture&) = delete;

  // All that was written so far.
  std::string Text() const;

 private:
  int original_;
  int file_;
};
