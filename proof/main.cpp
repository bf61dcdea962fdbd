// vantrel-soak: many firmware updates with troubles drawn from seeds.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "proof/soak.h"
#include "simulator/number_option.h"

namespace {

constexpr int ExitKept = 0;
constexpr int ExitBroken = 1;
constexpr int ExitBadArguments = 2;

struct Arguments {
  proof::SoakOptions soak;
  std::string trace;
  std::string planFile;
  bool shrink = false;
  bool json = false;
};

void DescribeSoak(CLI::App& app, Arguments& arguments) {
  using simulator::Number;
  app.add_option("--runs", arguments.soak.runs, "How many runs")
      ->type_name("N")
      ->transform(Number("1 or more", [](u64 runs) { return runs > 0; }))
      ->capture_default_str();
  app.add_option("--seed", arguments.soak.firstSeed, "The first run's seed; the next ones follow")
      ->type_name("S")
      ->transform(Number("0 or more", [](u64) { return true; }))
      ->capture_default_str();
  app.add_option("--jobs", arguments.soak.jobs, "How many runs side by side")
      ->type_name("J")
      ->transform(Number("1 to 64", [](u64 jobs) { return jobs >= 1 && jobs <= 64; }))
      ->capture_default_str();
  app.add_flag("--parallel", arguments.soak.parallel,
               "Let a run's threads go side by side; such a run does not repeat exactly");
  app.add_flag("--stop-at-first", arguments.soak.stopAtFirst,
               "Begin no more runs once one has failed");
  app.add_flag("--json", arguments.json,
               "Tell the closing figures as a line of JSON on standard output, and the rest on "
               "standard error");
}

// Of one plan there is one run, so what belongs to many makes no sense beside it.
void DescribeOne(CLI::App& app, Arguments& arguments) {
  CLI::Option* const plan =
      app.add_option("--plan", arguments.planFile, "Run the plan in the file in place of seeds")
          ->type_name("FILE");
  CLI::Option* const shrink = app.add_flag(
      "--shrink", arguments.shrink,
      "Make the plan of the seed or the file smaller as long as it fails, and tell the "
      "smallest one");
  for (CLI::Option* const one : {plan, shrink}) {
    for (const char* const many : {"--runs", "--jobs", "--json", "--stop-at-first"}) {
      one->excludes(app.get_option(many));
    }
  }
  plan->excludes(app.get_option("--seed"));
  shrink->excludes(app.get_option("--parallel"));
  app.add_option("--trace", arguments.trace, "all: tell every run on standard error")
      ->type_name("all")
      ->excludes(shrink)
      ->check([](const std::string& text) {
        return text == "all" ? std::string() : "takes all, not '" + text + "'";
      });
}

// A folder can be opened as a stream, and reads as if it were empty.
std::string ReadFile(const std::string& name) {
  std::ifstream file(name);
  if (!file || !std::filesystem::is_regular_file(name)) {
    throw std::runtime_error("cannot read " + name);
  }
  return {std::istreambuf_iterator<char>(file), {}};
}

// Whether everything kept the promise; --shrink wants the opposite.
bool Run(const Arguments& arguments) {
  const proof::SoakOptions& options = arguments.soak;
  const auto plan = [&] {
    return arguments.planFile.empty() ? proof::PlanOfSeed(options.firstSeed)
                                      : ReadFile(arguments.planFile);
  };
  if (arguments.shrink) {
    return proof::ShrinkPlan(plan(), stdout);
  }
  if (!arguments.planFile.empty()) {
    return proof::RunPlan(plan(), options, stdout);
  }
  proof::SoakFigures figures;
  const bool kept = proof::RunSoak(options, arguments.json ? stderr : stdout, figures);
  if (arguments.json) {
    std::printf("%s\n", proof::FiguresJson(figures).c_str());
  }
  return kept;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Many updates with troubles drawn from seeds; exit 0 when all kept their promises.",
               "vantrel-soak");
  app.set_help_flag("--help", "Print this help and exit");
  app.set_version_flag("--version", VANTREL_VERSION, "Print the version and exit");
  Arguments arguments;
  DescribeSoak(app, arguments);
  DescribeOne(app, arguments);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& success) {
    return app.exit(success);
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "vantrel-soak: %s\nTry vantrel-soak --help.\n", error.what());
    return ExitBadArguments;
  }
  arguments.soak.trace = !arguments.trace.empty();
  int exitCode = ExitBroken;
  try {
    exitCode = Run(arguments) ? ExitKept : ExitBroken;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vantrel-soak: %s\n", error.what());
  }
  return exitCode;
}
