// The judge of a trial: holds what happens against what the service promises.
//
// Written from the promise, not from the service's code: it sees the wire, the words told, the
// keyboard and the handles, and nothing of the service's own values.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "simulator/dfuse_file.h"
#include "simulator/nor_flash.h"
#include "simulator/soak/trial.h"

namespace simulator {

class Judge {
 public:
  // originalFlash is what each keyboard held before the trial.
  Judge(Stage& stage, const TrialPlan& plan, const NorFlash& originalFlash);

  // Sees every transfer, on the calling thread.
  void LookAtTransfer(const platform::TransferRecord& record);

  // Something happened after which the user may be told one failure more: the service started, or
  // an arrival was delivered so many times.
  void NoteOccasions(u64 count);

  void Violate(const std::string& what);

  // Looks at all that can be looked at when the life is over. quiet: no update is under way, so
  // nothing may be open but what lives as long as the process; unless the device asked to be left
  // alone until later, and was pulled: the operation learns of it then.
  void ConcludeLife(bool quiet);

  std::vector<std::string> violations() const;

 private:
  void NoteWait(const platform::TransferRecord& record);
  bool IsLeftAlone() const;
  void LookAtMemory();
  void LookAtFlashes();
  void LookAtFlash(const VirtualKeyboard& keyboard, bool mayChange);
  void LookAtHandles();
  void LookAtWords();

  Stage& stage_;
  const TrialPlan& plan_;
  const NorFlash original_;
  NorFlash wanted_;  // the package and nothing else
  mutable std::mutex lock_;
  std::vector<std::string> violations_;
  std::vector<u32> downloaders_;  // threads that sent DNLOADs, in the order of their first
  bool leftLast_ = false;         // the last thing that any device was told is to leave DFU mode
  u64 leftAloneUntilMs_ = 0;
  u64 lastTransferEndMs_ = 0;
  u32 lastTransferThread_ = 0;
  u64 occasions_ = 0;
};

}  // namespace simulator
