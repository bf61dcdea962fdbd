// vantrel-sim: a whole firmware update on a simulated tablet.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <exception>
#include <system_error>

#include "simulator/check_package.h"
#include "simulator/soak/soak.h"
#include "simulator/update_run.h"

namespace {

constexpr int ExitUpdated = 0;
constexpr int ExitNotUpdated = 1;
constexpr int ExitBadArguments = 2;

constexpr char DefaultPackageVersion[] = "1.2.2.1";

int RefuseArguments(const std::string& why) {
  std::fprintf(stderr, "vantrel-sim: %s\nTry vantrel-sim --help.\n", why.c_str());
  return ExitBadArguments;
}

struct Arguments {
  std::string package;
  std::string keyboard;
  int battery = 80;
  bool realtime = false;
  std::string trace;
  simulator::SoakOptions soak;
};

// An option's number in decimal digits alone: the library would also read "0x20", make 8 of "010"
// and a huge number of "-1".
CLI::Validator Number(const char* takes, bool (*isTaken)(u64)) {
  const auto check = [takes, isTaken](std::string& text) {
    u64 number = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec != std::errc() || read.ptr != end || !isTaken(number)) {
      return std::string("takes ") + takes + ", not '" + text + "'";
    }
    text = std::to_string(number);
    return std::string();
  };
  return CLI::Validator(check, "");
}

std::string NeedText(const std::string& text) {
  return text.empty() ? "must not be empty" : "";
}

void Describe(CLI::App& app, Arguments& arguments) {
  app.set_help_flag("--help", "Print this help and exit");
  app.set_version_flag("--version", VANTREL_VERSION, "Print the version and exit");
  app.add_option("--package", arguments.package,
                 "A DfuSe package of your own; its name carries the version at the characters 10, "
                 "12, 14 and 16, as in VantrelKb_1.2.3.4.dfu")
      ->type_name("FILE.dfu")
      ->check(NeedText);
  app.add_option("--keyboard", arguments.keyboard,
                 "The keyboard's firmware; by default older than the package's")
      ->type_name("M.m.model.rev")
      ->check(NeedText);
  app.add_option("--battery", arguments.battery, "The battery's charge in percent (255: unknown)")
      ->type_name("N")
      ->transform(Number("0 to 100, or 255 for unknown",
                         [](u64 percent) { return percent <= 100 || percent == 255; }))
      ->capture_default_str();
  app.add_flag("--realtime", arguments.realtime, "Pace the run by the wall clock");
  app.add_option("--trace", arguments.trace,
                 "Show more: wire (every transfer), calls (every platform call) or all (both, and "
                 "the service's own standard output)")
      ->type_name("WHAT")
      ->check(NeedText);
}

// What is asked of one run means nothing to the subcommands, and would be passed over in silence.
CLI::App* AddSubcommand(CLI::App& app, const char* name, const char* description) {
  CLI::App* const subcommand = app.add_subcommand(name, description);
  subcommand->set_help_flag("--help", "Print this help and exit");
  for (CLI::Option* const option : app.get_options()) {
    subcommand->excludes(option);
  }
  return subcommand;
}

CLI::App* DescribeSoak(CLI::App& app, Arguments& arguments) {
  CLI::App* const soak = AddSubcommand(
      app, "soak",
      "Many updates with troubles drawn from seeds; exit 0 when all kept their promises");
  soak->add_option("--runs", arguments.soak.runs, "How many runs")
      ->type_name("N")
      ->transform(Number("1 or more", [](u64 runs) { return runs > 0; }))
      ->capture_default_str();
  soak->add_option("--seed", arguments.soak.firstSeed, "The first run's seed; the next ones follow")
      ->type_name("S")
      ->transform(Number("0 or more", [](u64) { return true; }))
      ->capture_default_str();
  soak->add_option("--jobs", arguments.soak.jobs, "How many runs side by side")
      ->type_name("J")
      ->transform(Number("1 to 64", [](u64 jobs) { return jobs >= 1 && jobs <= 64; }))
      ->capture_default_str();
  soak->add_flag("--parallel", arguments.soak.parallel,
                 "Let a run's threads go side by side; such a run does not repeat exactly");
  soak->add_option("--trace", arguments.trace, "all: tell every run on standard error")
      ->type_name("all");
  return soak;
}

CLI::App* DescribeCheck(CLI::App& app, Arguments& arguments) {
  CLI::App* const check = AddSubcommand(
      app, "check", "What is in a firmware package; exit 1 when the service would refuse it");
  check->add_option("file", arguments.package, "The package")
      ->type_name("FILE.dfu")
      ->required()
      ->check(NeedText);
  return check;
}

// A keyboard for the package's model, one version older where there is one.
simulator::KeyboardVersion OlderThan(simulator::KeyboardVersion version) {
  if (version.minor > 0) {
    --version.minor;
  } else if (version.major > 0) {
    --version.major;
    version.minor = 9;
  }
  return version;
}

bool ReadTrace(const std::string& trace, simulator::TimelineOptions& timeline) {
  timeline.wire = trace == "wire" || trace == "all";
  timeline.calls = trace == "calls" || trace == "all";
  return trace.empty() || timeline.wire || timeline.calls;
}

// The service writes to standard output on its own account. The timeline goes to the console; the
// service's lines only do when they were asked for.
std::FILE* SplitConsole(bool keepServiceOutput) {
  std::FILE* const console = fdopen(dup(STDOUT_FILENO), "w");
  if (!keepServiceOutput) {
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
  }
  return console;
}

int Run(const Arguments& arguments) {
  simulator::UpdateRunOptions options;
  if (!ReadTrace(arguments.trace, options.timeline)) {
    return RefuseArguments("--trace takes wire, calls or all, not '" + arguments.trace + "'");
  }
  options.batteryPercent = static_cast<u8>(arguments.battery);
  options.realtime = arguments.realtime;

  if (arguments.package.empty()) {
    options.package = simulator::DefaultPackage(*simulator::ParseVersion(DefaultPackageVersion));
  } else {
    std::string reason;
    const auto package = simulator::ReadPackage(arguments.package, reason);
    if (!package.has_value()) {
      std::fprintf(stderr, "vantrel-sim: %s is refused: %s\n", arguments.package.c_str(),
                   reason.c_str());
      return ExitNotUpdated;
    }
    options.package = *package;
  }

  options.keyboardVersion = OlderThan(options.package.version);
  if (!arguments.keyboard.empty()) {
    const auto version = simulator::ParseVersion(arguments.keyboard);
    if (!version.has_value()) {
      return RefuseArguments("--keyboard takes four digits such as 1.0.2.1, not '" +
                             arguments.keyboard + "'");
    }
    options.keyboardVersion = *version;
  }

  std::FILE* const console = SplitConsole(arguments.trace == "all");
  const bool updated = simulator::RunUpdate(options, console);
  std::fflush(console);
  return updated ? ExitUpdated : ExitNotUpdated;
}

int Soak(Arguments& arguments) {
  if (!arguments.trace.empty() && arguments.trace != "all") {
    return RefuseArguments("soak --trace takes all, not '" + arguments.trace + "'");
  }
  arguments.soak.trace = arguments.trace == "all";
  return simulator::RunSoak(arguments.soak, stdout) ? ExitUpdated : ExitNotUpdated;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Runs a whole keyboard firmware update on a simulated tablet.", "vantrel-sim");
  Arguments arguments;
  Describe(app, arguments);
  const CLI::App* const soak = DescribeSoak(app, arguments);
  const CLI::App* const check = DescribeCheck(app, arguments);
  app.require_subcommand(0, 1);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& success) {
    return app.exit(success);
  } catch (const CLI::ParseError& error) {
    return RefuseArguments(error.what());
  }
  if (check->parsed()) {
    return simulator::CheckPackage(arguments.package, stdout, stderr);
  }
  int exitCode = ExitNotUpdated;
  try {
    exitCode = soak->parsed() ? Soak(arguments) : Run(arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vantrel-sim: %s\n", error.what());
  }
  // Threads of the simulated machine still stand where its end left them.
  std::fflush(nullptr);
  _exit(exitCode);
}
