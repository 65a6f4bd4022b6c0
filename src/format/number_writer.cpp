#include "format/number_writer.h"

#include "format/locale_record.h"
#include "format/text_writer.h"

namespace {

/// The digits, followed by the "x" of the prefix.
constexpr char kCapitalDigits[] = "0123456789ABCDEFX";
constexpr char kSmallDigits[] = "0123456789abcdefx";

/// The two digits of every number below 100, one pair after the other.
struct DigitPairs {
  char text[200];
};
consteval DigitPairs MakeDigitPairs() {
  DigitPairs pairs{};
  for (int i = 0; i < 100; ++i) {
    pairs.text[2 * i] = static_cast<char>('0' + i / 10);
    pairs.text[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}
constexpr DigitPairs kDigitPairs = MakeDigitPairs();

/// Writes the two digits of a number below 100.
void StorePair(char* to, uint32_t value) {
  __builtin_memcpy(to, kDigitPairs.text + 2 * value, 2);
}

/// Returns the group sizes of the locale from the right; the last one repeats.
class GroupSizes {
 public:
  GroupSizes() : next_(UserLocale()->grouping), size_(0) {}
  /// Returns the size of the next group, or 0 if the remaining digits are not divided.
  uint32_t Next() {
    if (*next_ != 0 && *next_ != kGroupSizesEnd) size_ = *next_++;
    return size_;
  }

 private:
  const uint8_t* next_;
  uint32_t size_;
};

/// Returns the number of separators between the groups of `count` digits, and stores the size of the first
/// group.
uint32_t CountSeparators(uint32_t count, uint32_t* firstGroup) {
  GroupSizes sizes;
  uint32_t separators = 0;
  for (;;) {
    const uint32_t size = sizes.Next();
    if (size == 0 || count <= size) break;
    count -= size;
    ++separators;
  }
  *firstGroup = count;
  return separators;
}

uint32_t FieldLength(const char* field) {
  uint32_t length = 0;
  while (field[length]) ++length;
  return length;
}

/// The prefix and digits of a number, as the context of PutGroupedNumber.
struct GroupedNumber {
  const char* prefix;
  uint32_t prefixLength;
  const char* digits;
  uint32_t digitCount;
};

/// Returns the size of the group that has `behind` groups after it.
uint32_t GroupSizeAt(uint32_t behind) {
  GroupSizes sizes;
  uint32_t size = sizes.Next();
  while (behind-- > 0) size = sizes.Next();
  return size;
}

/// Calls `put` with each piece of the grouped digits.
template <class Put>
void ForEachGroup(const char* digits, uint32_t count, Put put) {
  const char* separator = UserLocale()->thousandsSeparator;
  const uint32_t separatorLength = FieldLength(separator);
  uint32_t group;
  uint32_t behind = CountSeparators(count, &group);
  for (;;) {
    put(digits, group);
    if (behind == 0) break;
    digits += group;
    group = GroupSizeAt(--behind);
    put(separator, separatorLength);
  }
}

[[gnu::cold]] void PutGroupedNumber(TextSink* sink, const void* context) {
  const auto* number = static_cast<const GroupedNumber*>(context);
  sink->Put(number->prefix, number->prefixLength);
  ForEachGroup(number->digits, number->digitCount,
               [&](const char* piece, uint32_t length) { sink->Put(piece, length); });
}

/// Writes prefix and digits, padded to the directive's width.
void WriteDigits(Output* output, const char* number, uint32_t prefixLength, uint32_t length,
                 bool zerosBehindPrefix, const Directive& directive) {
  uint32_t width = directive.width;
  if (zerosBehindPrefix && prefixLength != 0 && (directive.flags & kZero)) {
    WriteOwnText(output, number, prefixLength, directive.flags, 0);
    width = width > prefixLength ? width - prefixLength : 0;
    number += prefixLength;
    length -= prefixLength;
    prefixLength = 0;
  }
  if (directive.flags & kGroup) {
    const GroupedNumber grouped{number, prefixLength, number + prefixLength, length - prefixLength};
    WriteComposed(output, PutGroupedNumber, &grouped, directive.flags & ~static_cast<uint32_t>(kPlus), width);
  } else {
    WriteOwnText(output, number, length, directive.flags, width);
  }
}

void WriteDecimal(Output* output, uint64_t value, const Directive& directive) {
  char digits[kMaxDecimalDigits];
  const uint32_t count = CountDecimalDigits(value);
  StoreDecimal(digits, value, count);
  WriteDigits(output, digits, 0, count, false, directive);
}

}  // namespace

void StoreDecimal(char* to, uint64_t value, uint32_t count) {
  constexpr uint32_t kBlock = 100000000;
  char* at = to + count;
  while (count >= 8 && value >= kBlock) {
    const uint64_t above = value / kBlock;
    const uint32_t block = static_cast<uint32_t>(value - above * kBlock);
    const uint32_t high = block / 10000;
    const uint32_t low = block % 10000;
    at -= 8;
    count -= 8;
    StorePair(at, high / 100);
    StorePair(at + 2, high % 100);
    StorePair(at + 4, low / 100);
    StorePair(at + 6, low % 100);
    value = above;
  }
  uint32_t rest = static_cast<uint32_t>(value);
  while (count >= 2) {
    at -= 2;
    StorePair(at, rest % 100);
    rest /= 100;
    count -= 2;
  }
  if (count) at[-1] = static_cast<char>('0' + rest % 10);
}

void StoreBitDigits(char* to, uint64_t value, uint32_t count, uint32_t shift, bool capital) {
  const char* digits = capital ? kCapitalDigits : kSmallDigits;
  const uint32_t mask = (1u << shift) - 1;
#pragma clang loop unroll(disable) vectorize(disable)
  for (uint32_t i = count; i > 0; --i) {
    to[i - 1] = digits[value & mask];
    value >>= shift;
  }
}

void WriteSigned(Output* output, int64_t value, const Directive& directive) {
  if (value == INT64_MIN) {
    // On purpose: the minus of this one text is U+2212, and only the text's first 20 bytes are written, so
    // its last two digits are missing.
    constexpr char kSmallest[] =
        "\xE2\x88\x92"
        "9223372036854775808";
    constexpr uint32_t kSmallestLength = 20;
    WriteOwnText(output, kSmallest, kSmallestLength, directive.flags, directive.width);
    return;
  }
  uint64_t magnitude = static_cast<uint64_t>(value);
  if (value < 0) {
    output->PutByte('-');
    magnitude = 0 - magnitude;
  } else if (directive.flags & kPlus) {
    output->PutByte('+');
  }
  WriteDecimal(output, magnitude, directive);
}

void WriteUnsigned(Output* output, uint64_t value, uint32_t shift, bool capital, const Directive& directive) {
  if (shift == 0) {
    WriteDecimal(output, value, directive);
    return;
  }
  const char* digits = capital ? kCapitalDigits : kSmallDigits;
  char number[kMaxNumberLength];
  uint32_t prefixLength = 0;
  if ((directive.flags & kAlternate) && value != 0) {
    number[prefixLength++] = '0';
    if (shift == 4) number[prefixLength++] = digits[16];
  }
  const uint32_t count = CountBitDigits(value, shift);
  StoreBitDigits(number + prefixLength, value, count, shift, capital);
  WriteDigits(output, number, prefixLength, prefixLength + count, shift == 4, directive);
}

uint64_t GroupedLength(uint32_t count) {
  uint32_t firstGroup;
  return count +
         uint64_t{CountSeparators(count, &firstGroup)} * FieldLength(UserLocale()->thousandsSeparator);
}

void PutGrouped(Output* output, const char* digits, uint32_t count) {
  ForEachGroup(digits, count, [&](const char* piece, uint32_t length) { output->Put(piece, length); });
}
