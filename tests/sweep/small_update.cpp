#include "tests/sweep/small_update.h"

simulator::TrialPlan SmallUpdate(Road road) {
  simulator::TrialPlan plan;
  plan.name = "sweep";
  plan.keyboard.version = {1, 1, 2, 1};
  plan.keyboard.flash = {{simulator::DefaultFlashAddress, {{4, 1024}, {2, 4096}}}};
  plan.keyboard.firmware = {{simulator::DefaultFlashAddress, 700},
                            {simulator::DefaultFlashAddress + 4096, 8192}};
  plan.package.version = {1, 2, 2, 1};
  plan.package.fileName = "VantrelKb_1.2.2.1.dfu";
  plan.package.contents.targets.emplace_back();
  plan.package.contents.targets[0].elements = simulator::BuildKeyboardImage(
      plan.package.version,
      {{simulator::DefaultFlashAddress, 2100}, {simulator::DefaultFlashAddress + 4096, 1500}});
  plan.package.bytes = simulator::BuildDfuSe(plan.package.contents);
  plan.attachMs = road == Road::OnArrival ? 36'000 : 0;
  plan.quietAtMs = 75'000;
  return plan;
}
