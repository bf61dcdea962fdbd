// Every byte of a keyboard's flash is the package's, erased, or what it was before.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "proof/plan.h"

namespace proof {

class FlashJudge {
 public:
  // originalFlash is what each keyboard held before the trial.
  FlashJudge(Stage& stage, const TrialPlan& plan, const NorFlash& originalFlash);

  // Looks after each operation that sent anything, because a later one may mend what one spoilt.
  // Called for every transfer, on its thread.
  void See(const platform::TransferRecord& record);

  // Looks now.
  void Look();

  std::vector<std::string> faults() const;

 private:
  void LookAt(const VirtualKeyboard& keyboard, bool mayChange);
  void Compare(const FlashSector& sector, const NorFlash& flash, bool mayChange);

  Stage& stage_;
  const TrialPlan& plan_;
  const NorFlash original_;
  NorFlash wanted_;  // the package and nothing else
  mutable std::mutex lock_;
  u32 downloader_ = 0;  // the thread that sent the last DNLOAD
  std::vector<std::string> faults_;
};

}  // namespace proof
