#include "common/wide_format.h"

namespace {

// Appends to a buffer of fixed length and keeps one character for the terminating zero.
class BoundedWriter {
 public:
  BoundedWriter(WCHAR* buffer, std::size_t capacityChars)
      : buffer_(buffer), capacityChars_(capacityChars), lengthChars_(0) {}

  void Put(WCHAR character) {
    if (lengthChars_ + 1 < capacityChars_) {
      buffer_[lengthChars_++] = character;
    }
  }

  std::size_t Terminate() {
    buffer_[lengthChars_] = 0;
    return lengthChars_;
  }

 private:
  WCHAR* buffer_;
  std::size_t capacityChars_;
  std::size_t lengthChars_;
};

void PutText(BoundedWriter& writer, const WCHAR* text) {
  for (const WCHAR* at = text; *at != 0; ++at) {
    writer.Put(*at);
  }
}

void PutNumber(BoundedWriter& writer, const FormatConversion& conversion, u32 number) {
  const bool negative = conversion.letter == 'd' && number > 0x7FFFFFFF;
  u32 rest = negative ? 0 - number : number;
  const u32 base = conversion.letter == 'x' || conversion.letter == 'X' ? 16 : 10;
  const char* const digitSet = conversion.letter == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";

  // Ten digits are the most that 32 bits need.
  char digits[10];
  u32 digitCount = 0;
  do {
    digits[digitCount++] = digitSet[rest % base];
    rest /= base;
  } while (rest != 0);

  const u32 lengthChars = digitCount + (negative ? 1 : 0);
  const u32 fillCount = conversion.width > lengthChars ? conversion.width - lengthChars : 0;
  if (negative) {
    writer.Put('-');
  }
  for (u32 filled = 0; filled < fillCount; ++filled) {
    writer.Put('0');
  }
  while (digitCount != 0) {
    writer.Put(static_cast<WCHAR>(digits[--digitCount]));
  }
}

void PutArgument(BoundedWriter& writer, const FormatConversion& conversion,
                 const FormatArgument& argument) {
  if (argument.kind == FormatKind::Text) {
    PutText(writer, argument.text);
  } else {
    PutNumber(writer, conversion, argument.number);
  }
}

}  // namespace

std::size_t FormatWide(WCHAR* buffer, std::size_t capacityChars, const WCHAR* format,
                       const FormatArgument* arguments) {
  BoundedWriter writer(buffer, capacityChars);
  const WCHAR* at = format;
  while (*at != 0) {
    if (*at != '%') {
      writer.Put(*at++);
      continue;
    }
    const FormatConversion conversion = ReadConversion(at + 1);
    if (conversion.kind == FormatKind::Percent) {
      writer.Put('%');
    } else {
      PutArgument(writer, conversion, *arguments++);
    }
    at = conversion.end;
  }
  return writer.Terminate();
}
