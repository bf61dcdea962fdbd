// The way of strings between UTF-16 and the ANSI code page.

#include "common/wide_string.h"

#include "tests/support/tablet_test.h"

namespace {

class ConversionTest : public TabletTest {};

TEST_F(ConversionTest, HoldsTheWholeTextOrNothing) {
  const std::pair<std::size_t, bool> cases[] = {
      {0, false}, {1, false}, {3, false}, {4, true}, {5, true}};
  for (const auto& [capacity, fits] : cases) {
    std::u16string wide(7, u'!');
    std::string narrow(7, '!');
    EXPECT_EQ(WidenAnsi("a\x80z", wide.data(), capacity), fits) << capacity;
    EXPECT_EQ(NarrowToAnsi(u"a\u20ACz", narrow.data(), capacity), fits) << capacity;
    EXPECT_EQ(wide[capacity], u'!') << capacity;
    EXPECT_EQ(narrow[capacity], '!') << capacity;
    if (capacity != 0) {
      EXPECT_EQ(std::u16string(wide.data()), fits ? u"a\u20ACz" : u"") << capacity;
      EXPECT_EQ(std::string(narrow.data()), fits ? "a\x80z" : "") << capacity;
    }
  }
}

}  // namespace
