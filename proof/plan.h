// The plan of a trial: the scenario, and the troubles that happen in the service's first life.
// Plain data; the sweeps write one by hand, the soak draws one from a seed or reads one
// (plan_text.h).
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "proof/history.h"
#include "simulator/package.h"
#include "simulator/scenario.h"
#include "simulator/trouble.h"

namespace proof {

// Two trials of one plan go the same way, call for call, unless their threads run side by side.
struct TrialPlan : Scenario {
  std::string name;  // how a person refers to it, for instance "seed 17"

  // Made of the scenario's draft (see SetPackage).
  Package package;

  // Those of a time stand in their order.
  std::vector<Trouble> troubles;

  // A second keyboard is there as a DFU device when a trouble attaches it; it leaves when the
  // troubles end. Whether its DFU device comes first in the lists.
  bool secondIsListedFirst = false;

  // When the troubles end.
  u64 quietAtMs = 60'000;

  // False: the package is not for this keyboard, which must be left as it is.
  bool expectsUpdate = true;

  bool parallel = false;  // all threads at once; such a run does not repeat exactly
  bool trace = false;     // tell the plan and what happens on standard error
};

// The package's bytes follow from the draft. Whoever changes the draft calls this again.
inline void SetPackage(TrialPlan& plan, const PackageDraft& draft) {
  plan.packageDraft = draft;
  if (draft.file.empty()) {
    plan.package = MakePackage(draft);
  }
}

// The keyboard once the troubles have ended: one that leaves before it has answered the report
// would need luck at start-up, where nobody is told of its return.
inline KeyboardOptions KeyboardInPeace(const TrialPlan& plan) {
  KeyboardOptions options = plan.keyboard;
  options.detachDelayMs = options.detachDelayMs == 0 ? 1 : options.detachDelayMs;
  return options;
}

// Whether a second keyboard ever comes.
inline bool HasSecond(const TrialPlan& plan) {
  return plan.secondIsListedFirst ||
         std::any_of(plan.troubles.begin(), plan.troubles.end(), [](const Trouble& trouble) {
           return std::string_view(trouble.kind->name) == "second";
         });
}

// Whether the plan does something after which only a new start of the service may help.
inline bool MayNeedNewStart(const TrialPlan& plan) {
  return std::any_of(plan.troubles.begin(), plan.troubles.end(),
                     [](const Trouble& trouble) { return trouble.kind->traits.mayNeedNewStart; });
}

}  // namespace proof
