// vantrel-sim: a workbench for people who make keyboard firmware. It runs whole firmware updates on
// a simulated tablet, and tells beforehand what the service will make of a package.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "simulator/ask_child.h"
#include "simulator/check_package.h"
#include "simulator/command_line.h"
#include "simulator/decide.h"
#include "simulator/exit_codes.h"
#include "simulator/host_process.h"
#include "simulator/nearest_option.h"
#include "simulator/pack.h"
#include "simulator/report.h"
#include "simulator/run_settings.h"
#include "simulator/update_run.h"

namespace {

using simulator::Arguments;
using simulator::Commands;
using simulator::IdNumber;
using simulator::Json;

// Says what is wrong with what was asked for.
Json Refuse(const simulator::PackageRefusal& refusal) {
  std::fprintf(stderr, "vantrel-sim: %s\n", refusal.reason.c_str());
  return {{"exitCode", refusal.exitCode}, {"result", refusal.reason}};
}

// The service's own output holds addresses of memory, which differ from run to run; so there is a
// way to have both traces without it.
bool ReadTrace(const std::string& trace, simulator::TimelineOptions& timeline) {
  const bool both = trace == "wire,calls" || trace == "all";
  timeline.wire = both || trace == "wire";
  timeline.calls = both || trace == "calls";
  return trace.empty() || timeline.wire || timeline.calls;
}

// Standard output holds the object alone; keys that all commands have come first.
int Finish(const Arguments& arguments, const char* command, Json result) {
  const int exitCode = result["exitCode"];
  if (arguments.json) {
    Json object{{"command", command}, {"exitCode", exitCode}};
    object.update(result);
    std::printf("%s\n", object.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
  }
  return exitCode;
}

// False, with the complaint written and the result set, when there is no such run.
bool ReadRun(Arguments& arguments, simulator::UpdateRunOptions& options, Json& result) {
  simulator::PackageRefusal refusal;
  if (!arguments.packages.empty()) {
    arguments.sources.options["package"] = {arguments.packages[0]};
  }
  if (!simulator::ReadRun(arguments.sources, options, refusal)) {
    result = Refuse(refusal);
    return false;
  }
  if (!ReadTrace(arguments.trace, options.timeline)) {
    result = Refuse({"--trace takes wire, calls, wire,calls or all, not '" + arguments.trace + "'",
                     simulator::ExitBadArguments});
    return false;
  }
  std::string reason;
  if (!arguments.report.empty() && !simulator::CanWriteReport(arguments.report, reason)) {
    result = Refuse({"--report " + arguments.report + " " + reason, simulator::ExitBadArguments});
    return false;
  }
  options.realtime = arguments.realtime;
  return true;
}

int Update(Arguments& arguments) {
  simulator::UpdateRunOptions options;
  Json result;
  if (ReadRun(arguments, options, result)) {
    result = simulator::AskChild([&](const std::string& driveFolder) {
      options.driveFolder = driveFolder;
      std::FILE* const console = simulator::SplitConsole(arguments.json, arguments.trace == "all");
      return simulator::RunUpdate(options, console);
    });
    std::string reason;
    if (!arguments.report.empty() && !simulator::WriteReport(arguments.report, result, reason)) {
      result = Refuse({"--report " + arguments.report + " " + reason, simulator::ExitBadArguments});
    }
  }
  return Finish(arguments, "update", result);
}

// The service runs in a child, and dies there at its first word.
int Decide(Arguments& arguments) {
  simulator::UpdateRunOptions options;
  Json result;
  if (ReadRun(arguments, options, result)) {
    result = simulator::DecideUpdate(options);
    simulator::PrintDecision(result, arguments.json ? stderr : stdout);
  }
  return Finish(arguments, "decide", result);
}

// Each file is looked at, however the one before it came out; the worst of them is the exit code.
int Check(const Arguments& arguments) {
  simulator::CheckOptions options;
  options.strict = arguments.strict;
  if (!arguments.keyboardIds.empty()) {
    options.keyboardIds.clear();
  }
  for (const std::string& id : arguments.keyboardIds) {
    options.keyboardIds.push_back({IdNumber(id.substr(4, 4)), IdNumber(id.substr(13))});
  }
  simulator::PackageRefusal refusal;
  if (!simulator::ReadKeyboard(arguments.sources, options.keyboard, options.mapText, refusal)) {
    Json result = Refuse(refusal);
    result["files"] = Json::array();
    return Finish(arguments, "check", result);
  }
  Json result{{"exitCode", simulator::ExitDone}, {"files", Json::array()}};
  std::FILE* const out = arguments.json ? stderr : stdout;
  for (const std::string& file : arguments.packages) {
    if (arguments.packages.size() > 1) {
      std::fprintf(out, "%s\n", file.c_str());
    }
    const Json check = simulator::CheckPackage(file, options);
    simulator::PrintCheck(check, out, stderr);
    result["exitCode"] = std::max(result["exitCode"].get<int>(), check["exitCode"].get<int>());
    result["files"].push_back(check);
  }
  return Finish(arguments, "check", result);
}

int Pack(Arguments& arguments) {
  simulator::PackOptions& options = arguments.pack;
  options.vendorId = IdNumber(arguments.vendorId);
  options.productId = IdNumber(arguments.productId);
  options.deviceVersion = IdNumber(arguments.deviceVersion);
  options.target.alternateSetting = static_cast<u8>(arguments.alternateSetting);
  if (options.sample != options.parts.empty()) {
    return Finish(
        arguments, "pack",
        Refuse({"pack takes parts, or --sample without any", simulator::ExitBadArguments}));
  }
  const simulator::PackResult result = simulator::Pack(options);
  if (result.exitCode == simulator::ExitDone) {
    std::fprintf(arguments.json ? stderr : stdout, "%s: %llu bytes\n", options.output.c_str(),
                 static_cast<unsigned long long>(result.bytes));
  } else {
    std::fprintf(stderr, "vantrel-sim: %s is not made: %s\n", options.output.c_str(),
                 result.reason.c_str());
  }
  return Finish(
      arguments, "pack",
      {{"exitCode", result.exitCode}, {"file", options.output}, {"result", result.reason}});
}

// The answer to a command line that makes no sense, in the way that it asks for.
int RefuseCommandLine(const CLI::App& app, const std::string& why, int argc, char** argv) {
  Arguments arguments;
  const std::vector<std::string> words(argv + 1, argv + argc);
  const auto isAmong = [&](const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
  };
  arguments.json = isAmong("--json");
  const char* command = "update";
  for (const char* const other : {"decide", "check", "pack"}) {
    command = isAmong(other) ? other : command;
  }
  std::fprintf(stderr, "vantrel-sim: %s%s\nTry vantrel-sim --help.\n", why.c_str(),
               simulator::NearestText(app, words).c_str());
  Json result{{"exitCode", simulator::ExitBadArguments}, {"result", why}};
  if (std::string(command) == "check") {
    result["files"] = Json::array();
  }
  return Finish(arguments, command, result);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Runs a whole keyboard firmware update on a simulated tablet.", "vantrel-sim");
  Arguments arguments;
  const Commands commands = DescribeCommands(app, arguments);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& success) {
    return app.exit(success);
  } catch (const CLI::ParseError& error) {
    return RefuseCommandLine(app, error.what(), argc, argv);
  }
  try {
    return commands.check->parsed()    ? Check(arguments)
           : commands.pack->parsed()   ? Pack(arguments)
           : commands.decide->parsed() ? Decide(arguments)
                                       : Update(arguments);
  } catch (const std::exception& error) {
    const char* const command = commands.check->parsed()    ? "check"
                                : commands.pack->parsed()   ? "pack"
                                : commands.decide->parsed() ? "decide"
                                                            : "update";
    Json result = Refuse({error.what(), simulator::ExitFailed});
    if (commands.check->parsed()) {
      result["files"] = Json::array();
    }
    return Finish(arguments, command, result);
  }
}
