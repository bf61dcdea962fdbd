// The formatter behind the debug lines.

#include "common/wide_format.h"

#include <gtest/gtest.h>

#include <limits>

#include "platform/machine/text.h"

namespace {

TEST(WideFormatTest, FormatsOneArgument) {
  const std::tuple<const WCHAR*, FormatArgument, std::u16string> cases[] = {
      {u"Error:%d", -1, u"Error:-1"},
      {u"%d", std::numeric_limits<i32>::min(), u"-2147483648"},
      {u"%d", u32{0x80000005}, u"-2147483643"},
      {u"%u", u32{0x80000005}, u"2147483653"},
      {u"0x%x\n", 0xDEADBEEF, u"0xdeadbeef\n"},
      {u"%04X", u16{0xFA}, u"00FA"},
      {u"%04X", 0x12345, u"12345"},
      {u"%02X", u8{0}, u"00"},
      {u"%04d|", -5, u"-005|"},
      {u"<%s>", u"wide \u20AC", u"<wide \u20AC>"},
      {u"%s", u"50%d", u"50%d"},
      {u"100%% of %d%%", 7, u"100% of 7%"},
  };
  for (const auto& [format, argument, expected] : cases) {
    WCHAR line[64];
    EXPECT_EQ(FormatWide(line, 64, format, &argument), expected.size());
    EXPECT_EQ(std::u16string(line), expected) << platform::Utf8FromWide(format);
  }
}

TEST(WideFormatTest, CutsAtTheEndOfTheBuffer) {
  const FormatArgument arguments[] = {FormatArgument(u"ab"), FormatArgument(-123)};
  const std::u16string whole = u"ab:-0123%";
  for (std::size_t capacity = 1; capacity <= whole.size() + 2; ++capacity) {
    std::vector<WCHAR> buffer(capacity + 1, u'!');
    const std::u16string expected = whole.substr(0, capacity - 1);
    EXPECT_EQ(FormatWide(buffer.data(), capacity, u"%s:%05d%%", arguments), expected.size());
    EXPECT_EQ(std::u16string(buffer.data(), expected.size()), expected) << capacity;
    EXPECT_EQ(buffer[expected.size()], u'\0') << capacity;
    EXPECT_EQ(buffer[capacity], u'!') << capacity;
  }
}

}  // namespace
