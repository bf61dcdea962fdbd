// The three lists: growable, intrusive, and the strings of a multi-string.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/growable_list.h"
#include "common/intrusive_list.h"
#include "common/multi_string.h"
#include "tests/support/refused_memory.h"

namespace {

TEST(GrowableListTest, KeepsItsItemsWhileItGrowsAndWhenMemoryIsRefused) {
  GrowableList<u64> list;
  std::vector<u64> expected;
  const auto items = [&] {
    std::vector<u64> all;
    for (u32 i = 0; i < list.size(); ++i) {
      all.push_back(list[i]);
    }
    return all;
  };
  u32 refusals = 0;
  for (u32 i = 0; i < 20; ++i) {
    // In front, in the middle and at the end in turns.
    const u32 position = list.size() * (i % 3) / 2;
    const RefusedMemory refusal(1);
    if (!list.Insert(position, i)) {
      ++refusals;
      ASSERT_EQ(items(), expected);
      ASSERT_TRUE(list.Insert(position, i));
    }
    expected.insert(expected.begin() + position, i);
    ASSERT_EQ(items(), expected);
  }
  EXPECT_GT(refusals, 0u);
  EXPECT_FALSE(list.Insert(21, 0));
  EXPECT_EQ(items(), expected);
}

struct Item {
  Item* nextInList = nullptr;
};

TEST(IntrusiveListTest, ListsEachItemOnceInTheOrderOfAppending) {
  IntrusiveList<Item> list;
  Item a, b, c;
  for (Item* item : {&a, &b, &c, &b, &a}) {
    list.Append(*item);
  }
  EXPECT_EQ(list.First(), &a);
  EXPECT_EQ(list.Next(a), &b);
  EXPECT_EQ(list.Next(b), &c);
  EXPECT_EQ(list.Next(c), nullptr);
  EXPECT_TRUE(list.Remove(&b));
  EXPECT_FALSE(list.Remove(&b));
  EXPECT_FALSE(list.Contains(&b));
  EXPECT_EQ(list.Next(a), &c);
  EXPECT_TRUE(list.Remove(&c));
  list.Append(b);
  EXPECT_EQ(list.Next(a), &b);
  // Looked up by address only, so that a handle of something long gone does no harm.
  EXPECT_FALSE(list.Contains(reinterpret_cast<const Item*>(0x10)));
}

TEST(MultiStringWalkTest, HandsOutTerminatedStringsUpToTheEmptyOne) {
  using namespace std::string_literals;
  const std::pair<std::u16string, std::vector<std::u16string>> cases[] = {
      {u""s, {}},
      {u"\0"s, {}},
      {u"ab\0c\0\0"s, {u"ab", u"c"}},
      {u"ab\0\0c\0\0"s, {u"ab"}},
      {u"ab\0c\0"s, {u"ab", u"c"}},
      {u"ab\0c"s, {u"ab"}},
  };
  for (const auto& [list, expected] : cases) {
    // A block of its own, so that a look behind its end shows.
    const std::vector<WCHAR> buffer(list.begin(), list.end());
    MultiStringWalk walk(buffer.data(), buffer.size());
    std::vector<std::u16string> strings;
    while (const WCHAR* text = walk.NextString()) {
      strings.emplace_back(text);
    }
    EXPECT_EQ(strings, expected);
    EXPECT_EQ(walk.NextString(), nullptr);
  }
}

}  // namespace
