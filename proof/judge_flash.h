// Every byte of a keyboard's flash is the package's, erased, or what it was before.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "proof/plan.h"
#include "simulator/stage.h"

namespace proof {

// An update that fails may leave a keyboard half written, but never with a byte that is neither the
// old one nor the new one. A keyboard that the package is not for keeps every byte.
class FlashJudge {
 public:
  // originalFlash is what each keyboard held before the trial.
  FlashJudge(Stage& stage, const TrialPlan& plan, const NorFlash& originalFlash);

  // Looks after each operation that sent anything, because a later one may mend what one spoilt.
  // Called for every transfer, on its thread. Returns a sentence for the first wrong byte of the
  // life; for all others, which tend to follow from it, and when all is well, an empty one.
  std::string See(const platform::TransferRecord& record);

  // Looks now.
  std::string Look();

 private:
  std::string LookAt(const VirtualKeyboard& keyboard, bool mayChange) const;
  std::string Compare(const FlashSector& sector, const NorFlash& flash, bool mayChange) const;

  Stage& stage_;
  const TrialPlan& plan_;
  const NorFlash original_;
  NorFlash wanted_;  // the package and nothing else
  std::mutex lock_;
  u32 downloader_ = 0;  // the thread that sent the last DNLOAD
  std::atomic<bool> hasTold_ = false;
};

}  // namespace proof
