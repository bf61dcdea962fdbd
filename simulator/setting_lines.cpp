#include "simulator/setting_lines.h"

#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <sstream>

namespace simulator {

namespace {

// Files that were written on Windows end their lines with a return as well.
constexpr char Blanks[] = " \t\r";

std::string Trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(Blanks);
  if (first == std::string::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(Blanks) - first + 1);
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() > end.size() && text.ends_with(end);
}

}  // namespace

bool SplitSettings(const std::string& text, std::vector<SettingLine>& lines, std::string& reason) {
  std::istringstream stream(text);
  u32 number = 0;
  for (std::string raw; std::getline(stream, raw);) {
    ++number;
    const std::string line = Trimmed(raw);
    if (line.empty() || line[0] == '#') {
      continue;
    }
    // The first sign divides: a map's name may hold another.
    const std::size_t sign = line.find('=');
    SettingLine setting;
    if (sign != std::string::npos) {
      setting = {number, Trimmed(line.substr(0, sign)), Trimmed(line.substr(sign + 1))};
    }
    if (setting.name.empty() || setting.value.empty()) {
      reason = "line " + std::to_string(number) + ": expected name = value, found '" + line + "'";
      return false;
    }
    lines.push_back(setting);
  }
  return true;
}

// Map strings hold blanks, so a quoted text is one word, its quotes included.
std::vector<std::string> WordsOf(const std::string& value) {
  std::vector<std::string> words;
  std::string word;
  bool isQuoted = false;
  for (const char character : value + " ") {
    isQuoted = isQuoted != (character == '"');
    if (!isQuoted && character == ' ') {
      if (!word.empty()) {
        words.push_back(word);
      }
      word.clear();
    } else {
      word += character;
    }
  }
  if (isQuoted) {
    words.push_back(word);  // the quote's end is missing: no reader takes it
  }
  return words;
}

// All of the text must be the number: "12 " or "12k" is a mistake that had better be told.
bool ReadNumber(const std::string& text, u64 least, u64 most, u64& number) {
  const bool isHex = text.starts_with("0x");
  const char* const begin = text.data() + (isHex ? 2 : 0);
  const char* const end = text.data() + text.size();
  u64 read = 0;
  const auto result = std::from_chars(begin, end, read, isHex ? 16 : 10);
  if (result.ec != std::errc() || result.ptr != end || read < least || read > most) {
    return false;
  }
  number = read;
  return true;
}

// Two words and no others: "true" or "1" would be guesses.
bool ReadYesNo(const std::string& text, bool& yes) {
  if (text != "yes" && text != "no") {
    return false;
  }
  yes = text == "yes";
  return true;
}

// In whole milliseconds, which the clock of the machine counts in; so there are no fractions to
// round.
bool ReadTime(const std::string& text, u64& milliseconds) {
  constexpr u64 MostSeconds = 1'000'000'000;
  if (text.find('x') != std::string::npos) {
    return false;
  }
  if (EndsWith(text, "ms")) {
    return ReadNumber(text.substr(0, text.size() - 2), 0, MostSeconds * 1000, milliseconds);
  }
  if (!EndsWith(text, "s")) {
    return false;
  }
  const std::string number = text.substr(0, text.size() - 1);
  const std::size_t point = number.find('.');
  u64 seconds = 0;
  if (!ReadNumber(number.substr(0, point), 0, MostSeconds, seconds)) {
    return false;
  }
  u64 thousandths = 0;
  if (point != std::string::npos) {
    std::string places = number.substr(point + 1);
    if (places.empty() || places.size() > 3) {
      return false;
    }
    places.resize(3, '0');
    if (!ReadNumber(places, 0, 999, thousandths)) {
      return false;
    }
  }
  milliseconds = seconds * 1000 + thousandths;
  return true;
}

// There is no way to write a quote inside; no map and no product string has one.
bool ReadQuoted(const std::string& text, std::string& inside) {
  if (text.size() < 2 || text.front() != '"' || text.find('"', 1) != text.size() - 1) {
    return false;
  }
  inside = text.substr(1, text.size() - 2);
  return true;
}

std::string HexText(u32 number) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08X", number);
  return text;
}

std::string YesNoText(bool yes) {
  return yes ? "yes" : "no";
}

// With all its places, so that plans line up and read back to the millisecond.
std::string TimeText(u64 milliseconds) {
  char text[32];
  std::snprintf(text, sizeof(text), "%" PRIu64 ".%03" PRIu64 "s", milliseconds / 1000,
                milliseconds % 1000);
  return text;
}

std::string QuotedText(const std::string& text) {
  return '"' + text + '"';
}

std::string WhereOf(const SettingLine& line) {
  return line.number == 0 ? "--" + line.name
                          : "line " + std::to_string(line.number) + ": " + line.name;
}

std::string UnknownSetting(const SettingLine& line) {
  return "line " + std::to_string(line.number) + ": there is no setting '" + line.name + "'";
}

}  // namespace simulator
