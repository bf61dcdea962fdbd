// What goes wrong in a life, at a call, at a transfer or on the way of a notice, and the count of
// what did. Any thread; lives as long as its host process.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>

#include "platform/machine/notifications.h"
#include "simulator/keyboard_options.h"
#include "simulator/trouble.h"

namespace simulator {

struct Stage;

// Kinds that need the machine's own help are handed to it in advance; the script calls for those of
// a time when that comes.
class Troubles {
 public:
  // The troubles must outlive it.
  Troubles(Stage& stage, const std::vector<Trouble>& troubles)
      : stage_(stage), troubles_(troubles) {}

  // Gives the machine its orders: what happens at a call, a transfer or a request for
  // memory.
  void Arm();

  // Takes back every order and makes the world as it should be, the keyboard as told. What was
  // armed and not met stays without effect.
  void End(const KeyboardOptions& peace);

  // How a notice that is about to be told is to be delivered.
  platform::DeliveryPlan PlanDelivery(const platform::Notice& notice);

  // When the last notice so far reaches the service.
  u64 lastNoticeMs() const;

  // Lets a trouble happen whose time or place has come, unless the troubles have ended.
  void Happen(const Trouble& trouble);

  // Notes that it happened, for the trial's report.
  void Count(const std::string& trouble);
  std::map<std::string, u64> counts() const;

 private:
  void Arm(const Trouble& trouble);

  Stage& stage_;
  const std::vector<Trouble>& troubles_;
  std::atomic<bool> ended_ = false;
  mutable std::mutex lock_;  // guards what follows
  std::map<std::string, u64> counts_;
  u64 lastNoticeMs_ = 0;
};

}  // namespace simulator
