// Lives of the service end in _exit, which writes no counts of what ran. In a build that counts
// (preset coverage) this one stands in its place and does.

#include <sys/syscall.h>
#include <unistd.h>

extern "C" void __gcov_dump();

extern "C" [[noreturn]] void _exit(int status) {
  __gcov_dump();
  syscall(SYS_exit_group, status);
  __builtin_unreachable();
}
