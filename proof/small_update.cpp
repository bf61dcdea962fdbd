#include "proof/small_update.h"

namespace proof {

// On arrival means behind the start-up sequence, which takes about half a minute.
TrialPlan SmallUpdate(Road road) {
  TrialPlan plan;
  plan.name = "sweep";
  plan.keyboard.version = {1, 1, 2, 1};
  plan.keyboard.flash = {{DefaultFlashAddress, {{4, 1024}, {2, 4096}}}};
  plan.keyboard.firmware = {{DefaultFlashAddress, 700}, {DefaultFlashAddress + 4096, 8192}};
  SetPackage(plan,
             {{1, 2, 2, 1},
              {{0, {{DefaultFlashAddress, 2100, {}}, {DefaultFlashAddress + 4096, 1500, {}}}}}});
  plan.attachMs = road == Road::OnArrival ? 36'000 : 0;
  plan.quietAtMs = 75'000;
  return plan;
}

}  // namespace proof
