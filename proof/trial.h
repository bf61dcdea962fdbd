// One trial: an update to which things happen, and the question whether the keyboard comes out of
// it with the new firmware.
//
// A trial is one to four lives of the service, each in a host process of its own; the keyboard,
// its flash and the mode it is in go from one to the next. In the first life the plan's troubles
// happen. Then the troubles end, the keyboard is plugged in anew, and it must be updated; where
// that life cannot do it, a new start of the service must. A second keyboard that came in between
// must be updated after it. The judge watches throughout.
#pragma once

#include <string>

#include "proof/plan.h"
#include "proof/trial_report.h"

namespace proof {

// Runs a trial. driveFolder is a host folder that this trial alone uses. Called by a process
// without other threads, since it forks. What the service prints to standard output is lost. Throws
// a std::runtime_error when the host gives no memory to share.
TrialReport RunTrial(const TrialPlan& plan, const std::string& driveFolder);

}  // namespace proof
