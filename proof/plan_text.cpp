#include "proof/plan_text.h"

#include <algorithm>

#include "proof/life.h"

namespace proof {

namespace {

using Texts = std::vector<std::string>;

constexpr Setting<TrialPlan> PlanLines[] = {
    {"second-listed-first", "yes or no",
     [](const TrialPlan& plan) { return Texts{YesNoText(plan.secondIsListedFirst)}; },
     [](TrialPlan& plan, const std::string& value) {
       return ReadYesNo(value, plan.secondIsListedFirst);
     }},
    {"quiet-at", "a time such as 90s",
     [](const TrialPlan& plan) { return Texts{TimeText(plan.quietAtMs)}; },
     [](TrialPlan& plan, const std::string& value) { return ReadTime(value, plan.quietAtMs); }},
    {"expects-update", "yes or no",
     [](const TrialPlan& plan) { return Texts{YesNoText(plan.expectsUpdate)}; },
     [](TrialPlan& plan, const std::string& value) {
       return ReadYesNo(value, plan.expectsUpdate);
     }},
};

// A line is a fault, one of the plan's own, or one of the scenario's that it is built on.
bool Take(const SettingLine& line, SettingReader<TrialPlan>& own, SettingReader<Scenario>& scenario,
          TrialPlan& plan, std::string& reason) {
  if (line.name == FaultName) {
    return TakeFault(line, plan.troubles, reason);
  }
  LineOutcome outcome = own.Take(line, plan, reason);
  if (outcome == LineOutcome::NotMine) {
    outcome = scenario.Take(line, plan, reason);
  }
  if (outcome == LineOutcome::NotMine) {
    reason = UnknownSetting(line);
  }
  return outcome == LineOutcome::Taken;
}

// The machine takes one order of some kinds; a second would replace the first in silence.
std::string FaultOfTroubles(const TrialPlan& plan) {
  for (const Trouble& trouble : plan.troubles) {
    if (trouble.kind->traits.isForBench) {
      return "no trial can judge what becomes of the fault '" + TroubleText(trouble) + "'";
    }
    const auto count =
        std::count_if(plan.troubles.begin(), plan.troubles.end(),
                      [&](const Trouble& other) { return other.kind == trouble.kind; });
    if (trouble.kind->traits.isSingle && count > 1) {
      return std::string("a plan has one fault of the kind '") + trouble.kind->name + "'";
    }
    if (trouble.kind->place == FaultPlace::Time && trouble.at > plan.quietAtMs) {
      return "the fault '" + TroubleText(trouble) + "' comes after quiet-at";
    }
  }
  return {};
}

}  // namespace

std::string PlanText(const TrialPlan& plan) {
  std::string text = "# " + plan.name + "\n";
  text += WriteSettings<Scenario>(ScenarioSettings(), plan);
  text += WriteSettings<TrialPlan>(PlanLines, plan);
  for (const Trouble& trouble : plan.troubles) {
    text += std::string(FaultName) + " = " + TroubleText(trouble) + "\n";
  }
  return text;
}

// A person may write the faults in any order. The package is made last, from all lines of it.
bool ReadPlan(const std::string& text, TrialPlan& plan, std::string& reason) {
  std::vector<SettingLine> lines;
  if (!SplitSettings(text, lines, reason)) {
    return false;
  }
  SettingReader<TrialPlan> own(PlanLines);
  SettingReader<Scenario> scenario(ScenarioSettings());
  for (const SettingLine& line : lines) {
    if (!Take(line, own, scenario, plan, reason)) {
      return false;
    }
  }
  std::stable_sort(plan.troubles.begin(), plan.troubles.end(), HappensBefore);
  if (const std::string& file = plan.packageDraft.file; !file.empty()) {
    PackageRefusal refusal;
    const std::optional<Package> package = ReadPackage(file, refusal);
    if (!package.has_value()) {
      reason = file + " is refused: " + refusal.reason;
      return false;
    }
    plan.package = *package;
    plan.keyboard.findVersion = VersionFinder({*package}, plan.keyboard.imageAddress);
  }
  SetPackage(plan, plan.packageDraft);
  reason = FaultOfPlan(plan);
  return reason.empty();
}

// A plan whose package could never run on its keyboard would fail for no fault of the service.
std::string FaultOfPlan(const TrialPlan& plan) {
  if (plan.keyboard.alternateSettings.empty()) {
    return "the keyboard needs an alternate-setting";
  }
  NorFlash flash(plan.keyboard.flash);
  if (flash.bytes().size() > MostFlashBytes) {
    return "a trial's map has at most 4 MiB";
  }
  const DfuSeTarget* const target = TargetForUpdate(plan.package.contents);
  if (target == nullptr) {
    return "the package needs a target for alternate setting 0";
  }
  for (const DfuSeElement& element : target->elements) {
    flash.Program(element.address, element.data);
  }
  const auto version = plan.keyboard.findVersion
                           ? plan.keyboard.findVersion(flash)
                           : FindKeyboardImage(flash, plan.keyboard.imageAddress);
  if (version != plan.package.version) {
    return "the package's target 0 makes no firmware for this map and image-address";
  }
  return FaultOfTroubles(plan);
}

}  // namespace proof
