// One life of the service, from its start to its end or to the end of the trial, in a host process
// of its own. The script of a trial: troubles, recovery, the second keyboard, the judge's look.
#pragma once

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "proof/judge.h"
#include "proof/plan.h"
#include "proof/trial_report.h"
#include "simulator/foreign_keyboard.h"
#include "simulator/stage.h"
#include "simulator/tablet.h"
#include "simulator/timeline.h"
#include "simulator/troubles.h"
#include "simulator/virtual_keyboard.h"

namespace proof {

// What the keyboard brings from an earlier life. The flash holds the bytes of all sectors in a row.
// Nothing else outlives a life.
struct Carried {
  bool any = false;
  KeyboardMode mode = KeyboardMode::Normal;
  std::vector<u8> flash;
};

inline constexpr std::size_t LifeTextBytes = 1 << 16;
inline constexpr std::size_t EarlyTextBytes = 1 << 13;
inline constexpr std::size_t MostFlashBytes = 4 << 20;

// Written by a life's process, read by the trial's once that has ended.
struct LifePage {
  // Kept while the life runs, for one that ends before its time: the platform call that began last,
  // the violations so far, and why no thread could run any more.
  std::atomic<u64> calls;
  std::atomic<platform::Call> lastCall;
  std::atomic<u64> lastCallMs;
  char violationsSoFar[EarlyTextBytes];  // as a report's text
  char stuck[EarlyTextBytes];

  // Of a life that was concluded.
  bool concluded;
  bool processEnded;  // the service stopped or was killed before the life was over
  KeyboardMode mode;
  std::size_t flashBytes;
  char text[LifeTextBytes];  // its report
  u8 flash[MostFlashBytes];

  // Makes room for the next life. The flash stays: flashBytes tells how much of it there is.
  void Empty();
};

// One a host process, made and run on its main thread. Never destroyed, because threads of the
// service may still use it.
class Life {
 public:
  // troubled: the plan's troubles happen in it. trace: where its timeline goes; null for none.
  // Switches the host process's machine on.
  Life(const TrialPlan& plan, const std::string& driveFolder, const Carried& carried, bool troubled,
       LifePage& page, std::FILE* trace);

  // Fills the page. The process is of no use afterwards: threads of the service may still stand
  // in its calls.
  void Run();

  // A request of the service for memory is being refused, on the calling thread.
  void SeeRefusedMemory();

 private:
  platform::Machine& machine() { return tablet_.machine(); }
  bool HasEnded();
  bool IsUpdated(const VirtualKeyboard& keyboard) const;
  bool IsUpdated() const { return IsUpdated(keyboard_); }

  // The script, in the order in which its parts run.
  void Watch();
  void SeeTransfer(const platform::TransferRecord& record);
  void SetUp();
  void PlugIn();
  void PassUntil(u64 timeMs);
  void LetTroublesHappen();
  void EndTroubles();
  void Recover();
  void RecoverSecond();
  void Conclude();
  void CarryFlash();
  void KeepViolations(const std::vector<std::string>& violations);
  // Called with the scheduler's lock held.
  [[noreturn]] void EndStuck(const std::string& why);

  const TrialPlan& plan_;
  LifePage& page_;
  std::FILE* const trace_;
  TrialReport report_;
  const bool troubled_;
  Tablet tablet_;
  VirtualKeyboard& keyboard_;
  ForeignKeyboard& foreign_;
  Deliveries deliveries_;
  History history_;
  Stage stage_;
  Troubles troubles_;
  Judge judge_;
  Timeline* timeline_ = nullptr;
  platform::Observation wire_;
  platform::Observation calls_;
  platform::Observation callTroubles_;
  bool attachInDfu_ = false;
  bool loggedOn_ = false;
};

}  // namespace proof
