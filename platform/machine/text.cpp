#include "platform/machine/text.h"

#include <algorithm>

namespace platform {

namespace {

// The bytes 0x80 to 0x9F, the only ones where the code page differs from Latin-1.
constexpr char16_t UpperControls[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

// One to four bytes; the first tells how many.
void AppendUtf8(std::string& text, char32_t character) {
  const auto append = [&](char32_t bits) { text.push_back(static_cast<char>(bits)); };
  if (character < 0x80) {
    append(character);
    return;
  }
  if (character < 0x800) {
    append(0xC0 | character >> 6);
  } else {
    if (character < 0x10000) {
      append(0xE0 | character >> 12);
    } else {
      append(0xF0 | character >> 18);
      append(0x80 | (character >> 12 & 0x3F));
    }
    append(0x80 | (character >> 6 & 0x3F));
  }
  append(0x80 | (character & 0x3F));
}

// Letters of Latin-1 only, where the difference is always 0x20; 0xF7 is the division sign. Names on
// the drive and in the registry have no others.
char16_t UpperCase(char16_t unit) {
  const bool latin =
      (unit >= 0xE0 && unit <= 0xFE && unit != 0xF7) || (unit >= u'a' && unit <= u'z');
  return latin ? static_cast<char16_t>(unit - 0x20) : unit;
}

}  // namespace

char16_t WideFromAnsi(char byte) {
  const auto code = static_cast<unsigned char>(byte);
  return code >= 0x80 && code < 0xA0 ? UpperControls[code - 0x80] : code;
}

bool AnsiFromWide(char16_t unit, char& byte) {
  if (unit < 0x80 || (unit >= 0xA0 && unit < 0x100)) {
    byte = static_cast<char>(unit);
    return true;
  }
  const auto found = std::find(std::begin(UpperControls), std::end(UpperControls), unit);
  if (found != std::end(UpperControls)) {
    byte = static_cast<char>(0x80 + (found - std::begin(UpperControls)));
    return true;
  }
  if (unit >= 0xFF01 && unit <= 0xFF5E) {
    byte = static_cast<char>(unit - 0xFF01 + 0x21);
    return true;
  }
  return false;
}

// Half of a surrogate pair alone is no character, and shows as the replacement character.
std::string Utf8FromWide(std::u16string_view text) {
  std::string utf8;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t unit = text[i];
    const bool pair =
        (unit & 0xFC00) == 0xD800 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00;
    if (pair) {
      ++i;
      AppendUtf8(utf8, 0x10000 + (static_cast<char32_t>(unit & 0x3FF) << 10) + (text[i] & 0x3FFu));
    } else {
      AppendUtf8(utf8, (unit & 0xF800) == 0xD800 ? char32_t{0xFFFD} : unit);
    }
  }
  return utf8;
}

// Bytes that are no UTF-8 are taken as Latin-1, so that every host name stays readable.
std::u16string WideFromUtf8(std::string_view text) {
  std::u16string wide;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
    char32_t character = more == 0 ? lead : lead & (0x3Fu >> more);
    bool sound = more < text.size() - i;
    for (std::size_t k = 1; sound && k <= more; ++k) {
      const auto byte = static_cast<unsigned char>(text[i + k]);
      sound = (byte & 0xC0) == 0x80;
      character = character << 6 | (byte & 0x3Fu);
    }
    if (!sound) {
      wide.push_back(lead);
      continue;
    }
    i += more;
    if (character < 0x10000) {
      wide.push_back(static_cast<char16_t>(character));
    } else {
      wide.push_back(static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10)));
      wide.push_back(static_cast<char16_t>(0xDC00 + (character & 0x3FF)));
    }
  }
  return wide;
}

std::string Utf8FromAnsi(std::string_view text) {
  std::u16string wide;
  std::transform(text.begin(), text.end(), std::back_inserter(wide), WideFromAnsi);
  return Utf8FromWide(wide);
}

std::string AnsiFromUtf8(std::string_view text) {
  std::string ansi;
  for (const char16_t unit : WideFromUtf8(text)) {
    char byte = '?';
    AnsiFromWide(unit, byte);
    ansi.push_back(byte);
  }
  return ansi;
}

std::u16string UpperCase(std::u16string_view text) {
  std::u16string upper(text);
  for (char16_t& unit : upper) {
    unit = UpperCase(unit);
  }
  return upper;
}

bool EqualsIgnoringCase(std::u16string_view left, std::u16string_view right) {
  return UpperCase(left) == UpperCase(right);
}

}  // namespace platform
