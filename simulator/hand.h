// The hand of a run: it plugs the keyboard in, and makes what is to go wrong happen. What comes at
// a time it does on a thread of the machine; the rest happens where it was ordered.
#pragma once

#include <cstdio>

#include "simulator/foreign_keyboard.h"
#include "simulator/stage.h"
#include "simulator/timeline.h"
#include "simulator/troubles.h"
#include "simulator/update_options.h"

namespace simulator {

class Tablet;
class VirtualKeyboard;

class Hand {
 public:
  // Keeps all of them; second is a keyboard that a trouble may attach. Lives as long as its host
  // process.
  Hand(Tablet& tablet, VirtualKeyboard& keyboard, VirtualKeyboard& second, Timeline& timeline,
       const UpdateRunOptions& options);
  Hand(const Hand&) = delete;
  Hand& operator=(const Hand&) = delete;

  // Once, before the service starts. Plugs the keyboard in unless it comes later, gives the machine
  // the orders that wait for a call, a transfer or the keyboard's work, and starts the thread for
  // what comes at a time.
  void Begin();

  // The time, in milliseconds, of the last thing planned for one. Until then more is to come,
  // however still it is.
  u64 plannedUntilMs() const { return moments_.empty() ? 0 : moments_.back().atMs; }

  // Whether a trouble has ended the service's process, as a kill does: no handler ran.
  bool killedService() const { return stage_.killed; }

  // A line for each trouble whose place never came: it has shown nothing. Asked for at the end of
  // the run. The stream stays open.
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
  const std::vector<Moment> moments_;
};

}  // namespace simulator
