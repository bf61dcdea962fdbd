#include "simulator/collection_text.h"

#include <type_traits>

#include "platform/machine/text.h"
#include "simulator/setting_lines.h"

namespace simulator {

namespace {

// What a collection is told by beside its two usages: a number behind a word.
struct CollectionWord {
  const char* word;
  u64 most;
  u64 (*get)(const HidCollectionOptions& collection);
  void (*set)(HidCollectionOptions& collection, u64 number);
};

template <auto Field>
constexpr CollectionWord Word(const char* word, u64 most) {
  return {word, most,
          [](const HidCollectionOptions& collection) -> u64 { return collection.*Field; },
          [](HidCollectionOptions& collection, u64 number) {
            auto& field = collection.*Field;
            field = static_cast<std::remove_reference_t<decltype(field)>>(number);
          }};
}

using Collection = HidCollectionOptions;

// What is not told is as by itself, so the usual collections are short lines.
constexpr CollectionWord CollectionWords[] = {
    Word<&Collection::inputReportBytes>("in", 65'535),
    Word<&Collection::outputReportBytes>("out", 65'535),
    Word<&Collection::keyboardInterfaces>("keyboards", 16),
    Word<&Collection::openError>("open-error", 0xFFFFFFFF),
    Word<&Collection::readWriteError>("access-error", 0xFFFFFFFF),
    Word<&Collection::refusesProductString>("no-product-string", 1),
};

constexpr char ProductWord[] = "product";

bool ReadCollectionWord(const std::string& name, const std::string& value,
                        HidCollectionOptions& collection) {
  std::string product;
  if (name == ProductWord && ReadQuoted(value, product)) {
    collection.productString = platform::WideFromUtf8(product);
    return true;
  }
  for (const CollectionWord& word : CollectionWords) {
    u64 number = 0;
    if (name == word.word && ReadNumber(value, 0, word.most, number)) {
      word.set(collection, number);
      return true;
    }
  }
  return false;
}

}  // namespace

std::string CollectionText(const HidCollectionOptions& collection) {
  std::string text = std::to_string(collection.usagePage) + " " + std::to_string(collection.usage);
  for (const CollectionWord& word : CollectionWords) {
    if (word.get(collection) != word.get(HidCollectionOptions{})) {
      text += std::string(" ") + word.word + " " + std::to_string(word.get(collection));
    }
  }
  if (collection.productString.has_value()) {
    text += std::string(" ") + ProductWord + " " +
            QuotedText(platform::Utf8FromWide(*collection.productString));
  }
  return text;
}

bool ReadCollectionText(const std::string& text, HidCollectionOptions& collection) {
  const std::vector<std::string> words = WordsOf(text);
  if (words.size() < 2 || words.size() % 2 != 0 ||
      !ReadNumber(words[0], 0, 65'535, collection.usagePage) ||
      !ReadNumber(words[1], 0, 65'535, collection.usage)) {
    return false;
  }
  for (std::size_t i = 2; i < words.size(); i += 2) {
    if (!ReadCollectionWord(words[i], words[i + 1], collection)) {
      return false;
    }
  }
  return true;
}

}  // namespace simulator
