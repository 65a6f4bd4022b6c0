#include "format/float_writer.h"

#include "format/float_digits.h"
#include "format/locale_record.h"
#include "format/number_writer.h"
#include "format/text_writer.h"

namespace {

/// Digits after the point if the directive has no precision.
constexpr uint32_t kDefaultPrecision = 6;

uint32_t FieldLength(const char* field) {
  uint32_t length = 0;
  while (field[length]) ++length;
  return length;
}

/// The parts of a number in the order in which they are written.
struct Layout {
  const char* sign;
  uint32_t signLength;
  const char* digits;
  uint32_t wholeDigits;  ///< digits before the point; if there are none, one zero is written
  uint32_t wholeZeros;   ///< zeros after them
  bool grouped;          ///< true if the locale's separators group them
  const char* point;
  uint32_t pointLength;
  uint64_t leadingZeros;    ///< zeros after the point
  uint32_t fractionDigits;  ///< digits after them
  uint64_t trailingZeros;   ///< zeros after them
  char exponent[8];         ///< "e+00"
  uint32_t exponentLength;
};

/// Writes the parts in order, padded with blanks, or with zeros after the sign if `zeroPad` is true and
/// `left` is not.
void WriteParts(Output* output, const Layout& layout, uint64_t padding, bool zeroPad, bool left) {
  if (!left && !zeroPad) output->Fill(' ', padding);
  output->Put(layout.sign, layout.signLength);
  if (!left && zeroPad) output->Fill('0', padding);
  if (layout.wholeDigits == 0) {
    output->PutByte('0');
  } else if (layout.grouped) {
    PutGrouped(output, layout.digits, layout.wholeDigits + layout.wholeZeros);
  } else {
    output->Put(layout.digits, layout.wholeDigits);
    output->Fill('0', layout.wholeZeros);
  }
  output->Put(layout.point, layout.pointLength);
  output->Fill('0', layout.leadingZeros);
  output->Put(layout.digits + layout.wholeDigits, layout.fractionDigits);
  output->Fill('0', layout.trailingZeros);
  output->Put(layout.exponent, layout.exponentLength);
  if (left) output->Fill(' ', padding);
}

/// Divides the digits of `number` into those before the point and `places` after it.
[[gnu::noinline]] void LayOutFixed(const DecimalDigits& number, uint64_t places, Layout* layout) {
  const int32_t exponent = number.exponent;
  const uint32_t before = exponent >= 0 ? static_cast<uint32_t>(exponent) + 1 : 0;
  layout->wholeDigits = before < number.count ? before : number.count;
  layout->wholeZeros = before - layout->wholeDigits;
  const uint64_t leading = exponent < 0 ? static_cast<uint64_t>(-int64_t{exponent} - 1) : 0;
  layout->leadingZeros = leading < places ? leading : places;
  const uint64_t left = places - layout->leadingZeros;
  const uint32_t digits = number.count - layout->wholeDigits;
  layout->fractionDigits = digits < left ? digits : static_cast<uint32_t>(left);
  layout->trailingZeros = left - layout->fractionDigits;
}

/// Lays out one digit before the point, `places` after it, and the exponent.
[[gnu::noinline]] void LayOutExponent(const DecimalDigits& number, uint64_t places, bool capital,
                                      Layout* layout) {
  layout->wholeDigits = 1;
  layout->wholeZeros = 0;
  layout->leadingZeros = 0;
  const uint32_t digits = number.count - 1;
  layout->fractionDigits = digits < places ? digits : static_cast<uint32_t>(places);
  layout->trailingZeros = places - layout->fractionDigits;

  const uint32_t magnitude = static_cast<uint32_t>(number.exponent < 0 ? -number.exponent : number.exponent);
  const uint32_t exponentDigits = magnitude < 100 ? 2 : 3;
  layout->exponent[0] = capital ? 'E' : 'e';
  layout->exponent[1] = number.exponent < 0 ? '-' : '+';
  StoreDecimal(layout->exponent + 2, magnitude, exponentDigits);
  layout->exponentLength = 2 + exponentDigits;
}

/// Lays out the number by the rules of "%f" (`form` 'f'), "%e" or "%g", and returns its number of digits
/// after the point. `number` receives the digits.
uint64_t LayOut(double magnitude, char form, bool capital, const Directive& directive, DecimalDigits* number,
                Layout* layout) {
  const uint64_t precision = directive.precision == kNoPrecision ? kDefaultPrecision : directive.precision;
  layout->exponentLength = 0;
  if (form == 'f') {
    RoundToPlaces(magnitude, static_cast<uint32_t>(precision), number);
    LayOutFixed(*number, precision, layout);
    return precision;
  }
  if (form == 'e') {
    RoundToSignificant(magnitude, static_cast<uint32_t>(precision) + 1, number);
    LayOutExponent(*number, precision, capital, layout);
    return precision;
  }
  const bool alternate = (directive.flags & kAlternate) != 0;
  const int64_t significant = precision == 0 ? 1 : static_cast<int64_t>(precision);
  RoundToSignificant(magnitude, static_cast<uint32_t>(significant), number);
  while (number->count > 1 && number->digits[number->count - 1] == '0') --number->count;
  constexpr int32_t kLeastFixedExponent = -4;
  const bool fixed = number->exponent >= kLeastFixedExponent && number->exponent < significant;
  const int64_t whole = fixed ? number->exponent + 1 : 1;
  const int64_t present = int64_t{number->count} - whole;
  const int64_t places = alternate ? significant - whole : present > 0 ? present : 0;
  if (fixed) {
    LayOutFixed(*number, static_cast<uint64_t>(places), layout);
  } else {
    LayOutExponent(*number, static_cast<uint64_t>(places), capital, layout);
  }
  return static_cast<uint64_t>(places);
}

void WriteFinite(Output* output, double magnitude, char form, bool capital, const char* sign,
                 const Directive& directive) {
  DecimalDigits number;
  Layout layout;
  layout.sign = sign;
  layout.signLength = sign[0] != 0;
  layout.digits = number.digits;
  const uint64_t places = LayOut(magnitude, form, capital, directive, &number, &layout);

  layout.point = "";
  layout.pointLength = 0;
  if (places != 0 || (directive.flags & kAlternate)) {
    layout.point = UserLocale()->decimalPoint;
    layout.pointLength = FieldLength(layout.point);
  }
  const uint32_t before = layout.wholeDigits + layout.wholeZeros;
  layout.grouped = (directive.flags & kGroup) && before > 1;
  uint64_t length =
      layout.signLength + (before > 0 ? before : 1) + layout.pointLength + places + layout.exponentLength;
  // A zero after the digits is a digit that was found to be zero, so it is grouped too.
  if (layout.grouped) length += GroupedLength(before) - before;

  const uint64_t padding = directive.width > length ? directive.width - length : 0;
  const bool zeroPad = (directive.flags & kZero) != 0;
  const bool left = (directive.flags & kLeft) != 0;
  WriteParts(output, layout, padding, zeroPad, left);
}

/// Writes "nan", or "inf" after the locale's sign or a blank; as in C never padded with zeros.
[[gnu::cold]] void WriteSpecial(Output* output, double value, bool capital, const Directive& directive) {
  constexpr uint32_t kWordLength = 3;
  char text[kLocaleFieldSize + kWordLength];
  uint32_t length = 0;
  const bool isNan = __builtin_isnan(value);
  if (!isNan) {
    const char* sign = __builtin_signbit(value)   ? UserLocale()->negativeSign
                       : directive.flags & kPlus  ? UserLocale()->positiveSign
                       : directive.flags & kSpace ? " "
                                                  : "";
    length = FieldLength(sign);
    CopyShort(text, sign, length);
  }
  CopyShort(text + length, isNan ? (capital ? "NAN" : "nan") : (capital ? "INF" : "inf"), kWordLength);
  WritePadded(output, text, length + kWordLength, directive.flags & ~static_cast<uint32_t>(kZero),
              directive.width);
}

}  // namespace

void WriteFloat(Output* output, double value, const Directive& directive) {
  const bool capital = directive.letter < 'a';
  if (!__builtin_isfinite(value)) {
    WriteSpecial(output, value, capital, directive);
    return;
  }
  const char form = static_cast<char>(directive.letter | ('a' - 'A'));
  const char* sign = __builtin_signbit(value)   ? "-"
                     : directive.flags & kPlus  ? "+"
                     : directive.flags & kSpace ? " "
                                                : "";
  WriteFinite(output, __builtin_fabs(value), form, capital, sign, directive);
}
