// What the programs ask of the host: children that do one thing each, memory that is shared with
// them, and a quiet standard output.
//
// A simulated machine can be switched on once in a host process, so whoever runs several lives of
// the service gives each a child of its own.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <new>
#include <string>
#include <type_traits>

namespace simulator {

// Runs the body in a child process, which ends when the body returns; neither destructors nor exit
// handlers run then and no stream is flushed, because threads of a machine may still stand in its
// calls, with a stream locked. -1 when the host gives no child.
// A child has a copy of everything up to here, so the keyboard's flash can be handed to it by
// simply being there.
pid_t StartChild(const std::function<void()>& body);

// Waits for the child. Empty when its body returned, else how it ended, for instance "killed by
// SIGSEGV" or "exit code 3".
std::string WaitForChild(pid_t child);

inline std::string RunInChild(const std::function<void()>& body) {
  return WaitForChild(StartChild(body));
}

// From now on what the process writes to standard output is lost. The service says lines of its own
// there.
void SilenceStandardOutput();

// The service writes to standard output on its own account. Returns a stream to the console's own
// output (or error output), and lets standard output go nowhere unless the service's lines are to
// be kept. To be called once, by the process that runs the service.
std::FILE* SplitConsole(bool toErrors, bool keepServiceOutput);

// Memory of that many bytes which the process shares with the children that it starts later. It is
// never unmapped. Throws when the host has none.
void* MapShared(std::size_t size);

// One T in such memory.
template <class T>
T& MakeShared() {
  static_assert(std::is_trivially_destructible_v<T>);
  return *new (MapShared(sizeof(T))) T;
}

}  // namespace simulator
