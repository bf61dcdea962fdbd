// A test that runs for each row of a table, under the row's name.
//
// GoogleTest's own parameterized tests say the same and cost a third of a second of building for
// each suite. To be used so:
//
//   class PullTest : public TabletTest, public OfTable<Pull> {};
//   TEST_OF_ROW(PullTest, UpdateGoesOn) { ... row().forMs ... }
//   ROWS(PullTest, UpdateGoesOn, NameOfRow, {Pull{{"ForAMoment"}, 100}, Pull{{"ForLong"}, 5000}});
//
// The tests are then PullTest.UpdateGoesOn/ForAMoment and so on.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <string>
#include <tuple>
#include <vector>

#include "common/types.h"

// A row that has a name: its test is called after it.
struct NamedRow {
  const char* name;
};

inline std::string NameOfRow(const NamedRow& row) {
  return row.name;
}

inline std::string NumberOfRow(u64 number) {
  return std::to_string(number);
}

// What a suite derives from to read the row of its test. Of the thread of the tests; others may
// read the row while a test runs.
template <class RowType>
class OfTable {
 public:
  using Row = RowType;

  static const Row& row() { return *row_; }
  static void SetRow(const Row& row) { row_ = &row; }

 private:
  static inline const Row* row_ = nullptr;
};

// The numbers from one.
inline std::vector<u64> UpTo(u64 last) {
  std::vector<u64> numbers(last);
  std::iota(numbers.begin(), numbers.end(), 1);
  return numbers;
}

// Every row of the first list with every one of the second, and so on.
template <class First>
std::vector<std::tuple<First>> Combine(const std::vector<First>& firsts) {
  return {firsts.begin(), firsts.end()};
}
template <class First, class... Rest>
std::vector<std::tuple<First, Rest...>> Combine(const std::vector<First>& firsts,
                                                const std::vector<Rest>&... rests) {
  std::vector<std::tuple<First, Rest...>> rows;
  for (const First& first : firsts) {
    for (const std::tuple<Rest...>& rest : Combine(rests...)) {
      rows.push_back(std::tuple_cat(std::tuple(first), rest));
    }
  }
  return rows;
}

// Keeps the rows for as long as the process lives, where leak checks see them. A table without rows
// ends the program.
template <class Suite, class Test, class NameOf>
bool RegisterRows(const char* suite, const char* test, const char* file, int line, NameOf nameOf,
                  const std::vector<typename Suite::Row>& rows) {
  static const auto& kept = *new std::vector<typename Suite::Row>(rows);
  if (kept.empty()) {
    std::fprintf(stderr, "%s:%d: a table without rows\n", file, line);
    std::abort();
  }
  for (const auto& row : kept) {
    const std::string name = std::string(test) + "/" + nameOf(row);
    testing::RegisterTest(suite, name.c_str(), nullptr, nullptr, file, line, [&row]() -> Suite* {
      Suite::SetRow(row);
      return new Test;
    });
  }
  return true;
}

// Does not link without its ROWS.
#define TEST_OF_ROW(suite, test)                                                           \
  class suite##_##test : public suite {                                                    \
   public:                                                                                 \
    static const bool hasRows;                                                             \
    void TestBody() override;                                                              \
  };                                                                                       \
  [[gnu::used]] static const bool* const suite##_##test##_rows = &suite##_##test::hasRows; \
  void suite##_##test::TestBody()

// nameOf makes a row's name; behind it comes the list of the rows.
#define ROWS(suite, test, nameOf, ...) \
  const bool suite##_##test::hasRows = \
      RegisterRows<suite, suite##_##test>(#suite, #test, __FILE__, __LINE__, nameOf, __VA_ARGS__)
