#include "simulator/fault_order.h"

#include <algorithm>

#include "simulator/setting_lines.h"

namespace simulator {

namespace {

// A word and a number behind it, counted from 1.
constexpr struct {
  FaultPlace place;
  const char* word;
} CountedPlaces[] = {
    {FaultPlace::Transfer, "transfer"}, {FaultPlace::Call, "call"},
    {FaultPlace::Request, "request"},   {FaultPlace::Block, "block"},
    {FaultPlace::Erase, "erase"},
};

// Places that a run comes to once, so that no number is needed.
constexpr struct {
  FaultPlace place;
  const char* word;
} SinglePlaces[] = {
    {FaultPlace::Report, "report"},
    {FaultPlace::Return, "return"},
};

// What is written reads back as the same order: the soak prints its plans with it.
std::string PlaceText(const FaultOrder& order) {
  for (const auto& counted : CountedPlaces) {
    if (order.place == counted.place) {
      return counted.word + std::to_string(order.at);
    }
  }
  for (const auto& single : SinglePlaces) {
    if (single.place == order.place) {
      return single.word;
    }
  }
  return TimeText(order.at);
}

// A word that names a place wins; all else must be a time.
bool ReadPlace(const std::string& text, FaultOrder& order) {
  for (const auto& counted : CountedPlaces) {
    if (text.starts_with(counted.word)) {
      order.place = counted.place;
      return ReadNumber(text.substr(std::string(counted.word).size()), 1, ~u64{0}, order.at);
    }
  }
  for (const auto& single : SinglePlaces) {
    if (text == single.word) {
      order.place = single.place;
      order.at = 0;
      return true;
    }
  }
  order.place = FaultPlace::Time;
  return ReadTime(text, order.at);
}

}  // namespace

std::string FaultOrderText(const FaultOrder& order) {
  std::string text =
      order.kind + (order.detail.empty() ? "" : ":" + order.detail) + "@" + PlaceText(order);
  for (const u64 number : order.numbers) {
    text += " " + std::to_string(number);
  }
  return text;
}

bool ReadFaultOrder(const std::string& text, FaultOrder& order) {
  const std::vector<std::string> words = WordsOf(text);
  const std::size_t sign = words.empty() ? std::string::npos : words[0].find('@');
  if (sign == std::string::npos || !ReadPlace(words[0].substr(sign + 1), order)) {
    return false;
  }
  // Behind a colon stands which one of its kind it is to be, as with the status of an error.
  const std::string kind = words[0].substr(0, sign);
  const std::size_t colon = std::min(kind.find(':'), kind.size());
  order.kind = kind.substr(0, colon);
  order.detail = colon == kind.size() ? "" : kind.substr(colon + 1);
  order.numbers.clear();
  for (std::size_t i = 1; i < words.size(); ++i) {
    if (!ReadNumber(words[i], 0, ~u64{0}, order.numbers.emplace_back())) {
      return false;
    }
  }
  return true;
}

}  // namespace simulator
