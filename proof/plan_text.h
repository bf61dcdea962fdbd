// A plan as text: the scenario's lines (see simulator/scenario.h), and these of its own.
//
//     fault = unplug@22.500s 1500    a trouble (see simulator/trouble.h)
//     second-listed-first = yes
//     quiet-at = 90s
//     expects-update = no
#pragma once

#include <string>

#include "proof/plan.h"

namespace proof {

std::string PlanText(const TrialPlan& plan);

// Reads a plan into one that is as by itself. False: reason says why in one sentence, with the
// line's number where it is a line's fault; the plan is of no use then.
bool ReadPlan(const std::string& text, TrialPlan& plan, std::string& reason);

// Empty, or why no trial can be made of the plan: what it asks for is beyond a trial's bounds, or
// the service could do no good with it.
std::string FaultOfPlan(const TrialPlan& plan);

}  // namespace proof
