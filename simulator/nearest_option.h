// What somebody may have meant by a word of the command line that means nothing.
//
// The parser tells only that it knows no such word. Its message ends with what is found here.
// Called once, by main, before anything runs.
#pragma once

#include <CLI/CLI.hpp>
#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

#include "common/types.h"

namespace simulator {

// How many letters must be changed, added or left out to make one word of the other. Letters are
// bytes, and two letters that changed places count as two changes.
//
// row is one line of the table of all beginnings of a against all beginnings of b: row[j] belongs
// to the letters of a so far and the first j letters of b.
inline std::size_t LettersApart(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row[b.size()];
}

// The options and commands that can stand on the command line with these words: all commands, and
// the options of the command that is among the words. Without a command they are the options of an
// update. Options have their two dashes.
inline std::vector<std::string> KnownWords(const CLI::App& app,
                                           const std::vector<std::string>& words) {
  std::vector<std::string> known;
  const CLI::App* asked = &app;
  for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; })) {
    known.push_back(command->get_name());
    if (std::find(words.begin(), words.end(), command->get_name()) != words.end()) {
      asked = command;
    }
  }
  for (const CLI::Option* const option : asked->get_options()) {
    known.push_back(option->get_name());
  }
  return known;
}

// " (did you mean --map?)" for the first word that is none of the known ones and close to one of
// them; empty when no word is. words are those behind the program's name; the value behind a "=" is
// no part of the word that is compared. Words of three letters and less are passed over: too many
// others are two changes away from them.
inline std::string NearestText(const CLI::App& app, const std::vector<std::string>& words) {
  constexpr std::size_t MostApart = 2;
  const std::vector<std::string> known = KnownWords(app, words);
  for (const std::string& whole : words) {
    const std::string word = whole.substr(0, whole.find('='));
    if (word.size() <= MostApart + 1 ||
        std::find(known.begin(), known.end(), word) != known.end()) {
      continue;
    }
    const auto nearest = std::min_element(known.begin(), known.end(),
                                          [&](const std::string& a, const std::string& b) {
                                            return LettersApart(word, a) < LettersApart(word, b);
                                          });
    if (LettersApart(word, *nearest) <= MostApart) {
      return " (did you mean " + *nearest + "?)";
    }
  }
  return "";
}

}  // namespace simulator
