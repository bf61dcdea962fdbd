// A trouble of a plan as data: its kind, where it happens, and the numbers that it needs.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "simulator/fault_order.h"
#include "simulator/setting_lines.h"

namespace simulator {

struct Stage;
struct TroubleKind;

// Small and without pointers to anything but the table, so plans can be copied and shrunk.
struct Trouble {
  const TroubleKind* kind = nullptr;
  u64 at = 0;  // milliseconds for what happens at a time, else a number counted from 1
  u64 numbers[2] = {};
};

// A row of the table. A function that makes it happen is called on the thread where its place was
// met.
struct TroubleKind {
  const char* name;  // in a plan's text
  FaultPlace place;
  const char* told;  // in the trace and in the counts
  std::size_t numberCount;
  const char* numbers;  // what they mean, for whoever writes a plan
  u64 most;             // of each of them
  void (*happen)(Stage& stage, const Trouble& trouble);

  // What is particular about it; none of all that by default.
  struct Traits {
    bool isOrder = false;          // the machine is told of it in front, and notes it when it comes
    bool isSingle = false;         // a plan has one at the most
    bool needsDfuMode = false;     // nothing happens while the keyboard is in another
    bool mayNeedNewStart = false;  // see MayNeedNewStart
    bool namesStatus = false;      // the first number is a status, told as its name behind a ":"
    u64 usual = 0;                 // the first number when none is told; 0: it must be
    bool isForBench = false;       // what becomes of it no trial can judge
  } traits = {};
};

// The table, which lives as long as the program. Its order is that of the help.
std::span<const TroubleKind> TroubleKinds();

// The kinds of each place, a line a place, to choose from.
std::string TroubleHelp();

// Null when there is none of that name for such a place.
const TroubleKind* FindTroubleKind(const std::string& name, FaultPlace place);

// For code that names kinds itself. The kind must exist: a name that the table does not have ends
// the program.
Trouble MakeTrouble(const char* name, FaultPlace place, u64 at, u64 first = 0, u64 second = 0);

// The order of a plan: by time, and behind them those of a place.
bool HappensBefore(const Trouble& a, const Trouble& b);

// What somebody has to do when its time has come: a trouble, or, without one, to plug the keyboard
// in.
struct Moment {
  u64 atMs = 0;
  const Trouble* trouble = nullptr;
};

// Those of troubles that stand in order, one after the other. The keyboard comes at attachMs, in
// front of a trouble of that time; at 0 it is there from the beginning, which is no moment. The
// troubles must outlive them.
std::vector<Moment> MomentsOf(const std::vector<Trouble>& troubles, u64 attachMs);

// As in a plan's line, for instance "unplug@22.500s 1500".
std::string TroubleText(const Trouble& trouble);

// Empty, or why the text is not a trouble, to stand behind the option's name or the number of
// the line. After a complaint the trouble is of no use. A length that is left out is the usual one.
std::string ReadTrouble(const std::string& text, Trouble& trouble);

// Adds the trouble of a line of this name. False when it is none: reason then says where and why,
// and the troubles are of no use.
inline constexpr char FaultName[] = "fault";
bool TakeFault(const SettingLine& line, std::vector<Trouble>& troubles, std::string& reason);

}  // namespace simulator
