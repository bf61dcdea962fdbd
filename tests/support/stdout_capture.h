// What the process writes to standard output while the object lives. The main of the test programs
// keeps all of it in a file; what the writer has not flushed is not there yet.
#pragma once

#include <sys/types.h>

#include <string>

class StdoutCapture {
 public:
  StdoutCapture();

  // All that was written since.
  std::string Text() const;

 private:
  off_t start_;
};
