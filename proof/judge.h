// The judge of a life: holds what happens against what the service promises.
//
// Written from the promise, not from the service's code: it sees the wire, the words told, the
// keyboards, the notifications and what is left open, and nothing of the service's own values. Each
// thing that it looks at has a file of its own, judge_*.h.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "proof/judge_flash.h"
#include "proof/plan.h"

namespace proof {

// Watching may be done on any thread. The rest is for the script's thread, once the life is over.
class Judge {
 public:
  // originalFlash is what each keyboard held before the trial.
  Judge(Stage& stage, History& history, const TrialPlan& plan, const NorFlash& originalFlash)
      : stage_(stage), history_(history), plan_(plan), flash_(stage, plan, originalFlash) {}

  using Keeper = std::function<void(const std::vector<std::string>&)>;

  // Begins to watch. keep is given all violations so far whenever there is another one, on the
  // thread that brought it, so that they outlive a process that crashes.
  void Watch(Keeper keep);

  // Notes a violation at the present time. what says what was expected and what was found. Only the
  // first ten of a life are kept.
  void Violate(const std::string& what);

  // Looks at all that can be looked at when the life is over. quiet: no update is under way, so
  // nothing may be open but what lives as long as the process.
  void ConcludeLife(bool quiet);

  // In the order in which they were noted, which need not be that of their times.
  std::vector<std::string> violations() const;

 private:
  void Take(const std::vector<std::string>& faults);
  void TakeOne(const std::string& fault);  // empty: there is none

  Stage& stage_;
  History& history_;
  const TrialPlan& plan_;
  FlashJudge flash_;
  platform::Observation faults_;
  platform::Observation wire_;
  Keeper keep_;
  mutable std::mutex lock_;  // guards what follows, and is held while keep_ is called
  std::vector<std::string> violations_;
};

}  // namespace proof
