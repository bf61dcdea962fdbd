#include "simulator/trouble.h"

#include <algorithm>
#include <cstdlib>

#include "simulator/dfu_names.h"
#include "simulator/wire_requests.h"

namespace simulator {

namespace {

using enum FaultPlace;

// In the order of the table, so that help and complaints list them alike.
std::string KindNames(FaultPlace place) {
  std::string names;
  for (const TroubleKind& kind : TroubleKinds()) {
    if (kind.place == place) {
      names += (names.empty() ? "" : ", ") + std::string(kind.name);
    }
  }
  return names;
}

// Part of a sentence that tells somebody what his line lacks.
std::string NumbersText(const TroubleKind& kind) {
  if (kind.numberCount == 0) {
    return "no number";
  }
  return std::to_string(kind.numberCount) + (kind.numberCount == 1 ? " number: " : " numbers: ") +
         kind.numbers;
}

// The detail as the first number; whether it names a status that is an error, and nothing else.
bool TakeStatus(FaultOrder& order) {
  for (u32 status = errTARGET; status <= errSTALLEDPKT; ++status) {
    if (order.detail == NameOfDfuStatus(static_cast<u8>(status)) && order.numbers.empty() &&
        (order.place == FaultPlace::Block || order.place == FaultPlace::Erase)) {
      order.numbers = {status};
      return true;
    }
  }
  return false;
}

}  // namespace

std::string TroubleHelp() {
  constexpr struct {
    FaultPlace place;
    const char* written;
  } places[] = {{Time, "22.5s"},    {Block, "block7"},    {Erase, "erase2"},
                {Report, "report"}, {Return, "return"},   {Transfer, "transfer17"},
                {Call, "call120"},  {Request, "request5"}};
  std::string text;
  for (const auto& place : places) {
    text += std::string("  @") + place.written + ": " + KindNames(place.place) + "\n";
  }
  return text;
}

// The same name means another thing at another place: pulled at a time, or with a block on its way.
const TroubleKind* FindTroubleKind(const std::string& name, FaultPlace place) {
  for (const TroubleKind& kind : TroubleKinds()) {
    if (kind.place == place && name == kind.name) {
      return &kind;
    }
  }
  return nullptr;
}

// A name that is not in the table is a mistake in the program.
Trouble MakeTrouble(const char* name, FaultPlace place, u64 at, u64 first, u64 second) {
  const TroubleKind* const kind = FindTroubleKind(name, place);
  // Only code asks for kinds by name here, and it is tested. A file's names go through ReadTrouble.
  if (kind == nullptr) {
    std::abort();
  }
  return {kind, at, {first, second}};
}

// What has a place and no time stays in the order in which it was told, behind all that has one.
bool HappensBefore(const Trouble& a, const Trouble& b) {
  const auto key = [](const Trouble& trouble) {
    return trouble.kind->place == FaultPlace::Time ? trouble.at : ~u64{0};
  };
  return key(a) < key(b);
}

std::vector<Moment> MomentsOf(const std::vector<Trouble>& troubles, u64 attachMs) {
  std::vector<Moment> moments;
  for (const Trouble& trouble : troubles) {
    if (trouble.kind->place == FaultPlace::Time) {
      moments.push_back({trouble.at, &trouble});
    }
  }
  if (attachMs != 0) {
    const auto behind = std::find_if(moments.begin(), moments.end(),
                                     [=](const Moment& moment) { return moment.atMs >= attachMs; });
    moments.insert(behind, {attachMs, nullptr});
  }
  return moments;
}

std::string TroubleText(const Trouble& trouble) {
  FaultOrder order{trouble.kind->name, {}, trouble.kind->place, trouble.at, {}};
  if (trouble.kind->traits.namesStatus) {
    order.detail = NameOfDfuStatus(static_cast<u8>(trouble.numbers[0]));
    return FaultOrderText(order);
  }
  order.numbers.assign(trouble.numbers, trouble.numbers + trouble.kind->numberCount);
  return FaultOrderText(order);
}

std::string ReadTrouble(const std::string& text, Trouble& trouble) {
  FaultOrder order;
  if (!ReadFaultOrder(text, order)) {
    return "takes KIND@22.5s, @block7, @erase2, @report, @return, @transfer17, @call120 or "
           "@request5 and perhaps numbers, not '" +
           text + "'";
  }
  const TroubleKind* const kind = FindTroubleKind(order.kind, order.place);
  if (kind == nullptr) {
    return "knows there " + KindNames(order.place) + ", not '" + order.kind + "'";
  }
  if (kind->traits.namesStatus || !order.detail.empty()) {
    if (!TakeStatus(order)) {
      return std::string(kind->name) + " takes the name of a status, as in error:errWRITE@block3";
    }
  }
  // Some faults have a length that will do for most people.
  if (order.numbers.empty() && kind->traits.usual != 0) {
    order.numbers.assign(kind->numberCount, 0);
    order.numbers[0] = kind->traits.usual;
  }
  if (order.numbers.size() != kind->numberCount) {
    return std::string(kind->name) + " takes " + NumbersText(*kind);
  }
  trouble = {kind, order.at, {}};
  for (std::size_t i = 0; i < order.numbers.size(); ++i) {
    // Larger ones mean nothing to what takes them.
    if (order.numbers[i] > kind->most) {
      return std::string(kind->name) + " takes numbers up to " + std::to_string(kind->most);
    }
    trouble.numbers[i] = order.numbers[i];
  }
  return {};
}

bool TakeFault(const SettingLine& line, std::vector<Trouble>& troubles, std::string& reason) {
  const std::string why = ReadTrouble(line.value, troubles.emplace_back());
  reason = WhereOf(line) + " " + why;
  return why.empty();
}

}  // namespace simulator
