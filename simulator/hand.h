// The hand of a run: it plugs the keyboard in, and makes what is to go wrong happen. What comes at
// a time it does on a thread of the machine; the rest happens where it was ordered.
#pragma once

#include <cstdio>

#include "simulator/timeline.h"
#include "simulator/troubles.h"
#include "simulator/update_options.h"

namespace simulator {

class Hand {
 public:
  // Keeps all of them; second is a keyboard that a trouble may attach. Lives as long as its host
  // process.
  Hand(Tablet& tablet, VirtualKeyboard& keyboard, VirtualKeyboard& second, Timeline& timeline,
       const UpdateRunOptions& options);
  Hand(const Hand&) = delete;
  Hand& operator=(const Hand&) = delete;

  // Once, before the service starts.
  void Begin();

  // Until then more is to come, however still it is.
  u64 plannedUntilMs() const { return plannedUntilMs_; }

  bool killedService() const { return stage_.killed; }

  // A line for each trouble whose place never came: it has shown nothing.
  void WriteUnmet(std::FILE* stream) const;

 private:
  void PlugIn();
  void Move();
  void PassUntil(u64 timeMs);
  bool IsMet(const Trouble& trouble) const;

  Tablet& tablet_;
  VirtualKeyboard& keyboard_;
  Timeline& timeline_;
  const UpdateRunOptions& options_;
  ForeignKeyboard foreign_;
  Deliveries deliveries_;
  Stage stage_;
  Troubles troubles_;
  u64 plannedUntilMs_ = 0;
};

}  // namespace simulator
