// vantrel-bench: what the service costs, see docs/performance.md.
//
// The service writes lines of its own to standard output, which the figures would drown in; they go
// to a copy of it, and the service's lines go nowhere.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <ext/stdio_filebuf.h>

#include <ostream>

#include "simulator/host_process.h"

int main(int argumentCount, char** arguments) {
  benchmark::Initialize(&argumentCount, arguments);
  if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) {
    return 2;
  }
  __gnu_cxx::stdio_filebuf<char> console(dup(STDOUT_FILENO), std::ios::out);
  std::ostream figures(&console);
  simulator::SilenceStandardOutput();

  benchmark::BenchmarkReporter* const reporter = benchmark::CreateDefaultDisplayReporter();
  reporter->SetOutputStream(&figures);
  reporter->SetErrorStream(&figures);
  benchmark::RunSpecifiedBenchmarks(reporter);
  benchmark::Shutdown();
  return 0;
}
