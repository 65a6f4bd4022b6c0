// One parsed directive of a format, and the cursor over the arguments. Used by the files of the format
// engine.
#pragma once

#include <stdarg.h>
#include <stdint.h>

/// A length that means "up to the terminator".
constexpr uint32_t kToTerminator = 0xFFFFFFFF;
/// A precision that was not given.
constexpr uint32_t kNoPrecision = 0xFFFFFFFF;

/// The meaning of the flags, the length modifiers and the brace modifiers of a directive.
enum DirectiveFlags : uint32_t {
  kAlternate = 1u << 0,          ///< "#": number prefix; compact form of dates
  kLeft = 1u << 1,               ///< "-": pad on the right
  kPlus = 1u << 2,               ///< "+": sign of numbers; URL encoding of text; date and time
  kSpace = 1u << 3,              ///< " ": blanks in dumps; sign slot of floating-point numbers
  kZero = 1u << 4,               ///< "0": pad with zeros
  kGroup = 1u << 5,              ///< "'" or ",", or "$" in braces: digit grouping
  kLong = 1u << 6,               ///< "l": wide for "c" and "s"
  kWide64 = 1u << 7,             ///< "ll", "I64", or "t" without "l": a 64-bit argument
  kPrecisionArgument = 1u << 8,  ///< the precision came from an argument
  kEscapeQuote = 1u << 9,        ///< "'" once in braces
  kDoubleQuote = 1u << 10,       ///< "'" twice
  kEscapeDouble = 1u << 11,      ///< "'" three times
  kBacktick = 1u << 12,          ///< "`"
  kCdata = 1u << 13,             ///< "<"
  kTilde = 1u << 14,             ///< "~"
  kEntity = 1u << 15,            ///< "&"
  kHexAt = 1u << 16,             ///< "@"
  kHexSlash = 1u << 17,          ///< "/"
  kUpperCase = 1u << 18,         ///< "^"
  kLowerCase = 1u << 19,         ///< "_"
};

/// The flags that change the bytes of a text, without "+", whose meaning depends on the conversion.
constexpr uint32_t kTextModifiers = kEscapeQuote | kDoubleQuote | kEscapeDouble | kBacktick | kCdata |
                                    kTilde | kEntity | kHexAt | kHexSlash | kUpperCase | kLowerCase;

/// A parsed directive.
struct Directive {
  /// DirectiveFlags.
  uint32_t flags;
  /// The least bytes to write; 0 if not given.
  uint32_t width;
  /// The most bytes to write, or kNoPrecision.
  uint32_t precision;
  /// How much input a width or precision from an argument allows (bytes, or units of wide text);
  /// kToTerminator if neither came from an argument.
  uint32_t inputLength;
  /// The format text after the letter; a brace extension begins there if there is one.
  const char* afterLetter;
  /// The brace extension's text, not terminated; null if it is missing or empty.
  const char* text;
  /// The length of `text` in bytes.
  uint32_t textLength;
  /// The conversion letter; 0 if the format ends before it.
  char letter;
  /// The letter in braces, or 0.
  char variant;
};

/// Walks over the arguments, each of which fills one 8-byte slot on both processors.
class ArgumentCursor {
 public:
  /// Starts at the first argument of `args`.
  explicit ArgumentCursor(va_list args) : first_(reinterpret_cast<const uint64_t*>(args)), next_(first_) {}

  /// Moves to the argument `position`, counted in slots from 1.
  void MoveTo(uint32_t position) { next_ = first_ + (position - 1); }
  /// Returns the next slot without taking it.
  uint64_t Peek() const { return *next_; }
  /// Takes the whole slot.
  uint64_t Take() { return *next_++; }
  /// Takes the low half of the slot: the bits above a 32-bit argument are undefined.
  uint32_t Take32() { return static_cast<uint32_t>(Take()); }
  /// Takes the slot as a pointer.
  template <class Type>
  const Type* TakePointer() {
    return reinterpret_cast<const Type*>(Take());
  }

 private:
  const uint64_t* first_;
  const uint64_t* next_;
};

/// Parses the directive at `at`, after its "%", and returns the place after it. Takes widths and precisions
/// written as "*" from `arguments`.
const char* ParseDirective(const char* at, ArgumentCursor* arguments, Directive* directive);
