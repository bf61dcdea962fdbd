// Text of `name = value` lines, in which scenarios and plans are told and read.
//
// Empty lines and lines that begin with "#" mean nothing. What a name stands for is a table of its
// reader's; a value that is wrong, or a name that is unknown or given twice, is refused with the
// line's number and what was expected.
#pragma once

#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "common/types.h"

namespace simulator {

// As it stands in the text, with blanks at both ends cut off.
struct SettingLine {
  u32 number = 0;  // counted from 1; 0 for an option of the command line
  std::string name;
  std::string value;
};

// Takes the text apart and appends its settings to lines. False when a line is neither a setting
// nor empty; reason then says which, and lines holds those before it. The first "=" of a line
// divides.
bool SplitSettings(const std::string& text, std::vector<SettingLine>& lines, std::string& reason);

// Words of a value that stand between blanks; what is in quotes is one word and keeps them.
std::vector<std::string> WordsOf(const std::string& value);

// --- Values; false when the text is anything else, and the result is as it was ---

// Decimal, or hexadecimal behind "0x"; least and most are both allowed. The whole text must be the
// number, without blanks.
bool ReadNumber(const std::string& text, u64 least, u64 most, u64& number);

// For a narrower T. most must fit into it: the number is cut off without a word.
template <class T>
bool ReadNumber(const std::string& text, u64 least, u64 most, T& number) {
  u64 read = 0;
  if (!ReadNumber(text, least, most, read)) {
    return false;
  }
  number = static_cast<T>(read);
  return true;
}

// The two words alone; "true" or "1" is neither.
bool ReadYesNo(const std::string& text, bool& yes);

// Seconds with up to three places, as in "22.5s", or milliseconds, as in "300ms".
bool ReadTime(const std::string& text, u64& milliseconds);

// Text between quotes, without them. It may hold any character but a quote and the line's end.
bool ReadQuoted(const std::string& text, std::string& inside);

// The way back: what these write, the readers above take.
std::string HexText(u32 number);
std::string YesNoText(bool yes);
std::string TimeText(u64 milliseconds);  // "22.500s"
std::string QuotedText(const std::string& text);

// One name, and what stands behind it in a T.
template <class T>
struct Setting {
  const char* name;
  const char* takes;  // for the message, for instance "yes or no"

  // The values that tell what the T has, one a line; only a list has none or several.
  std::vector<std::string> (*write)(const T& settings);

  // Takes a value, or the next one of a list; whether it could.
  bool (*read)(T& settings, const std::string& value);

  // Only of a list: the T has none of it afterwards.
  void (*clear)(T& settings) = nullptr;

  // Told even when it is what a T has by itself.
  bool isAlwaysTold = false;
};

// A list that has nothing in it, where a T has something by itself.
inline constexpr char NoneText[] = "none";

// The lines of all that is not as in a T that nobody has changed.
template <class T>
std::string WriteSettings(std::span<const Setting<T>> table, const T& settings) {
  const T unchanged{};
  std::string text;
  for (const Setting<T>& setting : table) {
    std::vector<std::string> values = setting.write(settings);
    if (!setting.isAlwaysTold && values == setting.write(unchanged)) {
      continue;
    }
    if (values.empty()) {
      values.push_back(NoneText);
    }
    for (const std::string& value : values) {
      text += std::string(setting.name) + " = " + value + "\n";
    }
  }
  return text;
}

// Where a value stands, as a sentence about it begins: "line 3: battery" or "--battery".
std::string WhereOf(const SettingLine& line);

// NotMine: the table has no such name; another reader's table may have it.
enum class LineOutcome { Taken, Refused, NotMine };

// Takes the lines of one text into a T. The first line of a list replaces what the T has by itself.
// One reader for each text, because it remembers which names came.
template <class T>
class SettingReader {
 public:
  explicit SettingReader(std::span<const Setting<T>> table) : table_(table) {}

  // Refused: reason says why in one sentence, with the line's number. Otherwise reason means
  // nothing. A list whose first line was refused is empty afterwards.
  LineOutcome Take(const SettingLine& line, T& settings, std::string& reason) {
    for (const Setting<T>& setting : table_) {
      if (line.name == setting.name) {
        const bool isFirst = seen_.insert(line.name).second;
        return Take(setting, line, isFirst, settings, reason) ? LineOutcome::Taken
                                                              : LineOutcome::Refused;
      }
    }
    return LineOutcome::NotMine;
  }

 private:
  static bool Take(const Setting<T>& setting, const SettingLine& line, bool isFirst, T& settings,
                   std::string& reason) {
    const std::string where = WhereOf(line);
    if (!isFirst && setting.clear == nullptr) {
      reason = where + " is given twice";
      return false;
    }
    if (isFirst && setting.clear != nullptr) {
      setting.clear(settings);
      if (line.value == NoneText) {
        return true;
      }
    }
    reason = where + " takes " + setting.takes + ", not '" + line.value + "'";
    return setting.read(settings, line.value);
  }

  std::span<const Setting<T>> table_;
  std::set<std::string> seen_;
};

// The sentence for a line that no table knows.
std::string UnknownSetting(const SettingLine& line);

}  // namespace simulator
