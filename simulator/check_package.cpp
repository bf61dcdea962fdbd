#include "simulator/check_package.h"

#include <nlohmann/json.hpp>

#include "simulator/ask_child.h"
#include "simulator/exit_codes.h"
#include "simulator/host_process.h"
#include "simulator/service_view.h"
#include "simulator/timeline.h"
#include "simulator/update_run.h"
#include "simulator/update_verdict.h"

namespace simulator {

namespace {

// A whole update of the keyboard with that memory, to see what becomes of it and how long it takes.
void AddRun(const Package& package, const CheckOptions& options, Json& plan) {
  UpdateRunOptions run;
  run.package = package;
  run.keyboard = options.keyboard;
  run.keyboard.version = OlderThan(package.version);
  run.memoryIsMadeUp = false;
  const Json result = AskChild([&](const std::string& driveFolder) {
    run.driveFolder = driveFolder;
    SilenceStandardOutput();
    return RunUpdate(run, stdout);
  });
  plan["result"] = result["result"];
  if (result["exitCode"] == ExitDone) {
    plan["updateMs"] = result["updateMs"];
  }
}

// Of an accepted package: all that can be said without running it.
void AddContents(const Package& package, const CheckOptions& options, const Json& view,
                 Json& check) {
  check["version"] = VersionText(package.version);
  for (const char* const name : {"vendorId", "productId", "targets"}) {
    check[name] = view[name];
  }
  const std::vector<u8>& bytes = package.bytes;
  check["crc"] = DfuCrc(bytes.data(), bytes.size() - 4);
  check["warnings"] = PackageWarnings(package, options.keyboardIds);
}

// Counted from the service's cuts; the time alone comes from a run, since it depends on when the
// service looks.
void AddPlan(const Package& package, const CheckOptions& options, const Json& view, Json& check) {
  Json plan = view["plan"];
  plan["transferSize"] = options.keyboard.bootloader.transferSize;
  const u64 dropped = plan["bytesDropped"];
  if (dropped != 0) {
    check["warnings"].push_back(CountText(dropped) +
                                " bytes lie in no writable sector and are "
                                "dropped: look at the elements' addresses and at the map");
  }
  AddRun(package, options, plan);
  check["plan"] = plan;
}

// A refused file has a reason and nothing else: what could be read of it would look like a promise.
Json Refuse(Json& check, const PackageRefusal& refusal) {
  check["exitCode"] = refusal.exitCode;
  check["reason"] = refusal.reason;
  return check;
}

// The last address of an element is shown, not the one behind it: it is what people compare with a
// linker's map.
void PrintTarget(const Json& target, std::FILE* out) {
  const Json& elements = target["elements"];
  std::fprintf(out, "target for alternate setting %u, %zu element%s\n",
               target["alternateSetting"].get<unsigned>(), elements.size(),
               elements.size() == 1 ? "" : "s");
  for (const Json& element : elements) {
    const u32 address = element["address"];
    const u32 bytes = element["bytes"];
    std::fprintf(out, "  %s to %s, %s bytes\n", AddressText(address).c_str(),
                 AddressText(address + bytes - (bytes == 0 ? 0 : 1)).c_str(),
                 CountText(bytes).c_str());
  }
}

// One value a line, so that two plans can be compared.
void PrintPlan(const Json& plan, std::FILE* out) {
  const auto count = [&](const char* name) { return CountText(plan[name].get<u64>()); };
  std::fprintf(out, "plan for blocks of %s bytes\n", count("transferSize").c_str());
  std::fprintf(out, "  sectors erased     %s, of %s bytes\n", count("sectorsErased").c_str(),
               count("bytesErased").c_str());
  std::fprintf(out, "  bytes written      %s, in %s blocks\n", count("bytesWritten").c_str(),
               count("blocks").c_str());
  std::fprintf(out, "  bytes dropped      %s\n", count("bytesDropped").c_str());
  std::fprintf(out, "  bytes erased only  %s\n", count("bytesErasedOnly").c_str());
  if (plan.contains("updateMs")) {
    std::fprintf(out, "  takes              %s\n",
                 SecondsText(plan["updateMs"].get<u64>()).c_str());
  }
  std::fprintf(out, "  result of a run    %s\n", plan["result"].get<std::string>().c_str());
}

}  // namespace

Json CheckPackage(const std::string& path, const CheckOptions& options) {
  Json check{{"file", path}, {"exitCode", ExitDone}};
  PackageRefusal refusal;
  Package package;
  if (!ReadPackageFile(path, package, refusal)) {
    return Refuse(check, refusal);
  }
  const Json view = AskChild([&](const std::string& driveFolder) {
    SilenceStandardOutput();
    return ReadAsService(driveFolder, package.fileName, package.bytes, options.mapText,
                         options.keyboard.bootloader.transferSize);
  });
  // The service's word counts; the reader here explains it.
  const bool explained = ReadPackageContents(package, refusal);
  if (!view["accepted"].get<bool>()) {
    return Refuse(check,
                  explained ? PackageRefusal{"the service does not read it", ExitFailed} : refusal);
  }
  if (!explained) {
    return Refuse(check, {"the service takes it, and yet " + refusal.reason, ExitFailed});
  }
  AddContents(package, options, view, check);
  if (view.contains("plan") && view["plan"].contains("blocks")) {
    AddPlan(package, options, view, check);
  }
  if (options.strict && !check["warnings"].empty()) {
    check["exitCode"] = ExitFailed;
    check["reason"] = "it has warnings";
  }
  return check;
}

void PrintCheck(const Json& check, std::FILE* out, std::FILE* complaints) {
  if (check.contains("version")) {
    // packaging/make-package reads the first two lines.
    std::fprintf(out, "version %s\n", check["version"].get<std::string>().c_str());
    std::fprintf(out, "device VID_%04X&PID_%04X\n", check["vendorId"].get<unsigned>(),
                 check["productId"].get<unsigned>());
    std::fprintf(out, "CRC 0x%08X, as computed\n", check["crc"].get<u32>());
    for (const Json& target : check["targets"]) {
      PrintTarget(target, out);
    }
    for (const Json& warning : check["warnings"]) {
      std::fprintf(out, "warning: %s\n", warning.get<std::string>().c_str());
    }
    if (check.contains("plan")) {
      PrintPlan(check["plan"], out);
    } else {
      std::fprintf(out, "not checked against a memory map: give --map\n");
    }
  }
  if (check.contains("reason")) {
    std::fprintf(complaints, "vantrel-sim: %s is refused: %s\n",
                 check["file"].get<std::string>().c_str(),
                 check["reason"].get<std::string>().c_str());
  }
}

}  // namespace simulator
