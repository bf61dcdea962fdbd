#include "simulator/command_line.h"

#include <span>

#include "simulator/number_option.h"
#include "simulator/trouble.h"

namespace simulator {

namespace {

// A variable of the shell that is not set gives an empty word. Said here it is a mistake; taken
// further it would be a file without a name.
std::string NeedText(const std::string& text) {
  return text.empty() ? "must not be empty" : "";
}

// Four digits and no "0x": that is how Windows and USB tools show ids.
std::string NeedId(const std::string& text) {
  const bool shaped =
      text.size() == 4 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
  return shaped ? "" : "takes four hexadecimal digits such as 1209, not '" + text + "'";
}

std::string NeedKeyboardId(const std::string& text) {
  const bool shaped = text.size() == 17 && text.starts_with("VID_") && text.substr(8, 5) == "&PID_";
  return shaped && NeedId(text.substr(4, 4)).empty() && NeedId(text.substr(13)).empty()
             ? ""
             : "takes ids such as 'VID_1209&PID_0001', not '" + text + "'";
}

void DescribeOutput(CLI::App& app, Arguments& arguments) {
  app.add_flag("--json", arguments.json,
               "One JSON object on standard output; people's text goes to standard error");
}

// An option that means what the scenario's setting of its name does.
struct RunOption {
  const char* name;
  const char* type;
  const char* help;
  const char* usual = "";
  bool repeats = false;
};

// Those that change what a plan or its time comes to, so check takes them, too.
constexpr RunOption MemoryOptions[] = {
    {"map", "MAP",
     "The keyboard's memory, as the map string of its DFU interface tells it, such as \"@Internal "
     "Flash  /0x08000000/04*016Kg\"; once for each alternate setting",
     "", true},
    {"transfer-size", "BYTES", "The most bytes of a block", "1024"},
    {"erase-ms", "MS", "How long an erase takes, besides what its size takes", "150"},
    {"erase-16k-ms", "MS", "How long each 16 KiB of a sector takes on top", "100"},
    {"write-ms", "MS", "How long a block takes to write", "4"},
    {"restart-ms", "MS", "From the keyboard's leaving to its return", "1200"},
    {"leave-ms", "MS", "From the end of the update to the device's leaving", "20"},
};

// Those that the service compares before it does anything.
constexpr RunOption DecisionOptions[] = {
    {"keyboard", "M.m.model.rev", "The keyboard's firmware; by default older than the package's"},
    {"installed", "OLD.dfu", "The package that its flash holds, and with it its firmware"},
    {"battery", "N", "The battery's charge in percent (255: unknown)", "80"},
};

// Those that make a run other than the usual one.
constexpr RunOption TroubleOptions[] = {
    {"attach-at", "TIME", "When the keyboard is plugged in, such as 40s", "0s"},
    {"fault", "KIND@WHEN",
     "Something that goes wrong, such as stall@block7; as often as one likes. The list is below",
     "", true},
};

// Kept as text: what a value means is decided where a scenario's lines are read, so that both say
// the same about a wrong one. One value each time: what follows it may be the package.
void DescribeRun(CLI::App& app, std::span<const RunOption> options, Arguments& arguments) {
  for (const RunOption& option : options) {
    CLI::Option* const added =
        app.add_option(std::string("--") + option.name, arguments.sources.options[option.name],
                       option.help)
            ->type_name(option.type)
            ->expected(1)
            ->check(NeedText)
            ->multi_option_policy(option.repeats ? CLI::MultiOptionPolicy::TakeAll
                                                 : CLI::MultiOptionPolicy::Throw)
            ->allow_extra_args(false);
    if (*option.usual != '\0') {
      added->default_str(option.usual);
    }
  }
}

void DescribeMemory(CLI::App& app, Arguments& arguments) {
  DescribeRun(app, MemoryOptions, arguments);
  // A scenario may tell what no sound device does; on the command line that would be a slip.
  app.get_option("--transfer-size")->transform(Number("8 to 4096", [](u64 n) {
    return n >= 8 && n <= 4096;
  }));
}

void DescribeScenario(CLI::App& app, Arguments& arguments) {
  app.add_option("--scenario", arguments.sources.scenarioFile,
                 "The same settings as lines of a file; options come after them")
      ->type_name("FILE")
      ->check(NeedText);
}

void DescribeKeyboard(CLI::App& app, Arguments& arguments) {
  DescribeRun(app, DecisionOptions, arguments);
  app.add_option("--package", arguments.packages,
                 "A DfuSe package of your own; its name carries the version at the characters 10, "
                 "12, 14 and 16, as in VantrelKb_1.2.3.4.dfu")
      ->type_name("FILE.dfu")
      ->expected(1)
      ->check(NeedText);
  DescribeScenario(app, arguments);
}

void DescribeUpdate(CLI::App& app, Arguments& arguments) {
  DescribeKeyboard(app, arguments);
  DescribeMemory(app, arguments);
  DescribeRun(app, TroubleOptions, arguments);
  // Has no value on the command line and one in a scenario.
  app.add_flag_callback(
      "--in-dfu", [&arguments] { arguments.sources.options["in-dfu"] = {"yes"}; },
      "The keyboard was left over in DFU mode");
  DescribeOutput(app, arguments);
  app.add_flag("--realtime", arguments.realtime, "Pace the run by the wall clock");
  app.add_option("--report", arguments.report,
                 "Show the run on a page: flash, time, gates, log and verdict")
      ->type_name("FILE.html")
      ->check(NeedText);
  app.footer("Faults, by where they happen; some take a number behind a blank:\n" + TroubleHelp());
  app.add_option("--trace", arguments.trace,
                 "Show more: wire (every transfer), calls (every platform call), wire,calls (both) "
                 "or all (with the service's own standard output)")
      ->type_name("WHAT")
      ->check(NeedText);
}

// What is asked of a run means nothing to the subcommand, and would be passed over in silence.
CLI::App* AddSubcommand(CLI::App& app, const char* name, const char* description) {
  CLI::App* const subcommand = app.add_subcommand(name, description);
  subcommand->set_help_flag("-h,--help", "Print this help and exit");
  subcommand->set_version_flag("--version", VANTREL_VERSION, "Print the version and exit");
  for (CLI::Option* const option : app.get_options()) {
    if (option->get_name() != "--version") {
      subcommand->excludes(option);
    }
  }
  return subcommand;
}

CLI::Option* AddFiles(CLI::App& app, Arguments& arguments, const char* description) {
  return app.add_option("file", arguments.packages, description)
      ->type_name("FILE.dfu")
      ->check(NeedText);
}

CLI::App* DescribeCheck(CLI::App& app, Arguments& arguments) {
  CLI::App* const check = AddSubcommand(
      app, "check", "What is in a firmware package; exit 1 when the service would refuse it");
  AddFiles(*check, arguments, "The packages")->required();
  DescribeMemory(*check, arguments);
  DescribeScenario(*check, arguments);
  DescribeOutput(*check, arguments);
  check
      ->add_option("--keyboard-id", arguments.keyboardIds,
                   "What the suffix may name instead of this build's keyboard; once per mode")
      ->type_name("VID_hhhh&PID_hhhh")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->allow_extra_args(false)
      ->check(NeedKeyboardId);
  check->add_flag("--strict", arguments.strict, "A warning refuses the package, too");
  return check;
}

CLI::App* DescribePack(CLI::App& app, Arguments& arguments) {
  CLI::App* const pack =
      AddSubcommand(app, "pack", "Makes a firmware package from binaries and Intel HEX files");
  pack->add_option("parts", arguments.pack.parts, "0xADDRESS:FILE of a binary, or FILE.hex")
      ->type_name("PART")
      ->check(NeedText);
  pack->add_option("-o,--output", arguments.pack.output, "The package; its name tells the version")
      ->type_name("NAME.dfu")
      ->required()
      ->check(NeedText);
  pack->add_option("--firmware", arguments.pack.firmware, "The version that its name must carry")
      ->type_name("M.m.model.rev");
  pack->add_option("--alt", arguments.alternateSetting, "The alternate setting that it is for")
      ->type_name("N")
      ->transform(Number("0 to 255", [](u64 number) { return number <= 255; }))
      ->capture_default_str();
  pack->add_option("--name", arguments.pack.target.name, "The target's name")
      ->type_name("NAME")
      ->capture_default_str();
  const auto id = [&](const char* option, std::string& text, const char* description) {
    pack->add_option(option, text, description)
        ->type_name("HHHH")
        ->check(NeedId)
        ->capture_default_str();
  };
  id("--vid", arguments.vendorId, "The vendor id");
  id("--pid", arguments.productId, "The product id");
  id("--device", arguments.deviceVersion, "The device's version");
  pack->add_flag("--sample", arguments.pack.sample, "Packs firmware of the simulated keyboard");
  DescribeOutput(*pack, arguments);
  return pack;
}

}  // namespace

Commands DescribeCommands(CLI::App& app, Arguments& arguments) {
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.set_version_flag("--version", VANTREL_VERSION, "Print the version and exit");
  DescribeUpdate(app, arguments);
  CLI::App* const update =
      AddSubcommand(app, "update", "A whole update, which is also what runs without a command");
  DescribeUpdate(*update, arguments);
  AddFiles(*update, arguments, "The package")->expected(0, 1);
  CLI::App* const decide =
      AddSubcommand(app, "decide", "What the service would decide; exit 0 when it would update");
  DescribeKeyboard(*decide, arguments);
  DescribeOutput(*decide, arguments);
  AddFiles(*decide, arguments, "The package")->expected(0, 1);
  CLI::App* const check = DescribeCheck(app, arguments);
  CLI::App* const pack = DescribePack(app, arguments);
  app.require_subcommand(0, 1);
  return {decide, check, pack};
}

u16 IdNumber(const std::string& digits) {
  return static_cast<u16>(std::stoul(digits, nullptr, 16));
}

}  // namespace simulator
