// The format engine with random formats and arguments, compared with the C library if both mean the same, and
// checked by the rules that hold for every format.

#include <chrono>
#include <cmath>
#include <vector>

#include "base/object.h"
#include "unit/format/format_support.h"

namespace format_test {
namespace {

class FormatRandomTest : public FormatTest {};

double RandomDouble(Random& random) {
  uint64_t bits = random.Next();
  double value;
  switch (random.Below(4)) {
    case 0:  // every exponent
      memcpy(&value, &bits, sizeof value);
      // The C library on ARM64 prints subnormal numbers wrongly; format_float_test checks them without it.
      return std::isnan(value) ? HUGE_VAL : std::fpclassify(value) == FP_SUBNORMAL ? 0 : value;
    case 1:  // everyday sizes
      return std::ldexp(static_cast<double>(static_cast<int64_t>(bits)),
                        -static_cast<int>(40 + random.Below(40)));
    case 2:  // few digits
      return static_cast<double>(static_cast<int32_t>(bits) >> random.Below(31)) /
             static_cast<double>(1 << random.Below(12));
    default:  // near powers of ten
      value = std::pow(10.0, static_cast<int>(random.Below(40)) - 20) * (random.OneIn(2) ? 1 : -1);
      return random.OneIn(2) ? std::nextafter(value, 0.0) : value;
  }
}

/// A directive that C and the engine share, and C's result, adapted to the engine's rules.
struct Shared {
  char format[32];
  uint64_t slot;
  char expected[512];
  size_t length;
};

/// The text of an argument of "%s".
const char kTextLetters[] = "abcdefghijklmnopqrstuvwxyz";

class DirectiveMaker {
 public:
  explicit DirectiveMaker(uint64_t seed) : random_(seed) {}

  void Make(Shared* shared) {
    flags_ = "";
    const uint32_t kind = random_.Below(8);
    left_ = random_.OneIn(4);
    zero_ = random_.OneIn(4);
    width_ = random_.OneIn(2) ? static_cast<int>(random_.Below(30)) : 0;
    precision_ = random_.OneIn(4) ? static_cast<int>(random_.Below(24)) : -1;
    if (left_) flags_ += '-';
    if (kind < 3) {
      MakeSigned(shared);
    } else if (kind < 5) {
      MakeUnsigned(shared);
    } else if (kind < 6) {
      MakeText(shared);
    } else {
      MakeFloat(shared);
    }
    // The precision limits the bytes of a conversion.
    if (precision_ >= 0 && shared->length > static_cast<size_t>(precision_)) {
      shared->length = static_cast<size_t>(precision_);
    }
  }

 private:
  void Compose(char* format, const std::string& flags, const char* length, char letter, bool withPrecision) {
    char* at = format;
    *at++ = '%';
    for (char flag : flags) *at++ = flag;
    if (width_) at += snprintf(at, 8, "%d", width_);
    if (withPrecision && precision_ >= 0) at += snprintf(at, 8, ".%d", precision_);
    for (; *length; ++length) *at++ = *length;
    *at++ = letter;
    *at = 0;
  }

  void MakeSigned(Shared* shared) {
    const bool wide = random_.OneIn(2);
    int64_t value = static_cast<int64_t>(random_.Next()) >> random_.Below(64);
    if (value == INT64_MIN) value = 0;
    shared->slot = static_cast<uint64_t>(value);
    if (!wide) value = static_cast<int32_t>(value);
    const bool plus = random_.OneIn(4);
    if (plus) flags_ += '+';
    if (zero_) flags_ += '0';
    Compose(shared->format, flags_,
            wide               ? "ll"
            : random_.OneIn(2) ? "l"
                               : "",
            random_.OneIn(2) ? 'd' : 'i', true);
    // The engine writes the sign before the field; C then has no sign to write.
    std::string flags = left_ ? "-" : "";
    if (zero_) flags += '0';
    char format[32];
    Compose(format, flags, "ll", 'u', false);
    char* at = shared->expected;
    if (value < 0) {
      *at++ = '-';
    } else if (plus) {
      *at++ = '+';
    }
    const uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    at += snprintf(at, 256, format, magnitude);
    shared->length = static_cast<size_t>(at - shared->expected);
  }

  void MakeUnsigned(Shared* shared) {
    const bool wide = random_.OneIn(2);
    const uint64_t value = random_.Next() >> random_.Below(64);
    shared->slot = value;
    const char letter = "uoxX"[random_.Below(4)];
    if (letter != 'u' && random_.OneIn(3)) flags_ += '#';
    if (zero_) flags_ += '0';
    Compose(shared->format, flags_, wide ? "ll" : random_.OneIn(2) ? "l" : "", letter, true);
    char format[32];
    Compose(format, flags_, "ll", letter, false);
    const uint64_t taken = wide ? value : static_cast<uint32_t>(value);
    shared->length = static_cast<size_t>(snprintf(shared->expected, sizeof shared->expected, format, taken));
  }

  void MakeText(Shared* shared) {
    const char* text = kTextLetters + random_.Below(sizeof kTextLetters);
    shared->slot = reinterpret_cast<uint64_t>(text);
    Compose(shared->format, flags_, "", 's', true);
    char format[32];
    Compose(format, flags_, "", 's', false);
    shared->length = static_cast<size_t>(snprintf(shared->expected, sizeof shared->expected, format, text));
  }

  void MakeFloat(Shared* shared) {
    const double value = RandomDouble(random_);
    memcpy(&shared->slot, &value, sizeof value);
    if (zero_) flags_ += '0';
    if (random_.OneIn(4)) flags_ += '+';
    if (random_.OneIn(6)) flags_ += ' ';
    if (random_.OneIn(4)) flags_ += '#';
    const char letter = "efgEFG"[random_.Below(6)];
    Compose(shared->format, flags_, "", letter, true);
    if (letter != 'g' && letter != 'G') {
      shared->length =
          static_cast<size_t>(snprintf(shared->expected, sizeof shared->expected, shared->format, value));
      return;
    }
    // This C library forgets to pad "%g" of numbers that get one more digit by rounding.
    const int width = width_;
    width_ = 0;
    char format[32];
    Compose(format, flags_, "", letter, true);
    width_ = width;
    const int length = snprintf(shared->expected, sizeof shared->expected, format, value);
    if (length < width) {
      const int padding = width - length;
      const bool zero = zero_ && !left_ && std::isfinite(value);
      const int kept = left_                                                               ? length
                       : zero && !isdigit(static_cast<unsigned char>(shared->expected[0])) ? 1
                                                                                           : 0;
      memmove(shared->expected + kept + padding, shared->expected + kept, static_cast<size_t>(length - kept));
      memset(shared->expected + kept, zero ? '0' : ' ', static_cast<size_t>(padding));
    }
    shared->length = static_cast<size_t>(length < width ? width : length);
  }

  Random random_;
  std::string flags_;
  bool left_ = false;
  bool zero_ = false;
  int width_ = 0;
  int precision_ = -1;
};

TEST_F(FormatRandomTest, AMillionDirectivesAsInTheCLibrary) {
  constexpr int kDirectives = 1000000;
  DirectiveMaker maker(RunSeed());
  const auto format = FormatStringV.Get();
  Shared shared;
  char text[512];
  int wrong = 0;
  for (int i = 0; i < kDirectives; ++i) {
    maker.Make(&shared);
    ASSERT_LT(shared.length, sizeof text);
    const unsigned length = format(text, sizeof text, shared.format, reinterpret_cast<va_list>(&shared.slot));
    if (length != shared.length || memcmp(text, shared.expected, length) != 0 || text[length] != 0) {
      ADD_FAILURE() << shared.format << " of 0x" << std::hex << shared.slot << " is \""
                    << std::string(text, length) << "\", should be \""
                    << std::string(shared.expected, shared.length) << '"';
      if (++wrong == 10) break;
    }
  }
}

/// One random directive with arguments that fit it.
class FormatMaker {
 public:
  FormatMaker(Random& random, const char* data) : random_(random), data_(data) {
    object_.ops.CopyText = [](Object*, char* buffer, unsigned room, int, const char*, unsigned) -> unsigned {
      static const char kText[] = "an <object's> \"text\" \xC3\xA9\xE9";
      const unsigned length = sizeof kText - 1;
      if (!buffer) return length;
      const unsigned count = length < room ? length : room;
      memcpy(buffer, kText, count);
      return count;
    };
  }

  /// True if the text that the next formats write into a smaller buffer is the beginning of the text that
  /// they write into a larger one.
  bool prefixed = false;

  std::string format;
  /// Returns the same format with the position of its argument in each directive. It means the same, but the
  /// fast path of plain directives does not accept a position, so all of it takes the full path.
  std::string positioned;
  std::vector<uint64_t> slots;

  void Make() {
    format.clear();
    positioned.clear();
    slots.clear();
    for (uint32_t pieces = random_.Below(6); pieces > 0; --pieces) {
      Literal();
      positioned += '%' + std::to_string(slots.size() + 1) + '$';
      const size_t start = format.size();
      Directive();
      positioned += format.substr(start + 1);
    }
    Literal();
  }

 private:
  void Literal() {
    const uint32_t length = random_.OneIn(2) ? random_.Below(20) : 0;
    for (uint32_t i = 0; i < length; ++i) {
      const char c = static_cast<char>(1 + random_.Below(255));
      // A brace after a directive would belong to it.
      const char literal = c == '%' || (i == 0 && c == '{') ? '!' : c;
      format += literal;
      positioned += literal;
    }
  }

  void Star(int limit) {
    format += '*';
    // The bits above the 32 bits are random.
    slots.push_back(
        random_.Next() << 32 |
        static_cast<uint32_t>(static_cast<int>(random_.Below(static_cast<uint32_t>(limit) + 10)) - 10));
  }

  void Directive() {
    format += '%';
    if (random_.OneIn(2)) {
      for (uint32_t flags = random_.Below(4); flags > 0; --flags) {
        const char flag = "#-+' 0,"[random_.Below(7)];
        format += prefixed && (flag == '+' || flag == '#' || flag == '-') ? '0' : flag;
      }
    }
    if (random_.OneIn(3)) random_.OneIn(2) ? Star(40) : void(format += std::to_string(1 + random_.Below(40)));
    if (random_.OneIn(3)) {
      format += '.';
      random_.OneIn(2) ? Star(40) : void(format += std::to_string(random_.Below(50)));
    }
    for (uint32_t lengths = random_.OneIn(3) ? random_.Below(3) : 0; lengths > 0; --lengths) {
      static const char* const kLengths[] = {"l", "ll", "I64", "t"};
      format += kLengths[random_.Below(4)];
    }
    const char letter = prefixed ? "diuoxXcsSPTheEfgGpO%k"[random_.Below(21)]
                                 : "diuoxXcsSPTHhDzZeEfFgGpO%aAkyn\xE9"[random_.Below(31)];
    format += letter;
    std::string variant;
    if (letter == 'p' && !prefixed && random_.OneIn(2)) variant = "hHbUsOq"[random_.Below(7)];
    if (letter == 'p' && prefixed && random_.OneIn(2)) variant = "hHbsOq"[random_.Below(6)];
    if (strchr("dxX", letter) && !prefixed && random_.OneIn(2)) variant = "zZTq"[random_.Below(4)];
    std::string modifiers;
    if (!prefixed && random_.OneIn(3)) {
      for (uint32_t count = 1 + random_.Below(3); count > 0; --count)
        modifiers += "'`<~&@/^_$?"[random_.Below(11)];
    }
    std::string text;
    if (!prefixed && random_.OneIn(4)) text = ":#F <#A> #c#x'#X'#z#Z#";
    if (!variant.empty() || !modifiers.empty() || !text.empty()) {
      format += "{" + variant;
      if (!modifiers.empty() || !text.empty()) format += ":" + modifiers + text;
      format += '}';
    }
    Arguments(letter, variant);
  }

  void Arguments(char letter, const std::string& variant) {
    const uint64_t number = random_.Next() >> random_.Below(64);
    const uint64_t pointer = random_.OneIn(8) ? 0 : reinterpret_cast<uint64_t>(data_ + random_.Below(40));
    switch (variant.empty() ? letter : variant[0]) {
      case '%':
      case 'k':
      case 'y':
      case 'n':
      case '\xE9':
        break;
      case 'S':
      case 'H':
      case 'h':
        if (variant.empty()) slots.push_back(random_.Next() << 32 | random_.Below(40));
        slots.push_back(pointer);
        break;
      case 's':
        // It may be a wide text, which begins at an even address.
        slots.push_back(pointer & ~uint64_t{1});
        break;
      case 'P':
      case 'b':
      case 'B':
      case 'U':
        slots.push_back(pointer);
        break;
      case 'O':
        slots.push_back(random_.OneIn(4) ? 0 : reinterpret_cast<uint64_t>(&object_));
        break;
      default:
        slots.push_back(number);
        break;
    }
  }

  Random& random_;
  const char* data_;
  Object object_{};
};

/// Makes readable data with text of every kind: zero bytes, terminators for both kinds of string at the end,
/// quotes, markup, complete and broken UTF-8.
rig::GuardedBuffer MakeData(Random& random) {
  std::string data;
  // Long enough for the length that any length byte in it can give.
  while (data.size() < 400) {
    static const char kInteresting[] = "\r\n\t\"'\\<>&%]]>a Z\x80\xC3\xA9\xE2\x82\xAC\xFF\x01/+";
    data += kInteresting[random.Below(sizeof kInteresting - 1)];
    if (random.OneIn(40)) data += '\0';
  }
  data += std::string(data.size() % 2 + 8, '\0');
  return rig::GuardedBuffer::Of(data, false);
}

void CheckFormat(const FormatMaker& maker, Random& random) {
  auto& formatV = FormatStringV;
  const va_list list = reinterpret_cast<va_list>(const_cast<uint64_t*>(maker.slots.data()));
  const auto format = rig::GuardedBuffer::Of(maker.format);
  const unsigned needed = formatV(nullptr, 0, format.Data(), list);
  ASSERT_LT(needed, 20000u);
  // With more space than needed nothing is cut, also for the dumps and stamps that need more than they write.
  const unsigned ample = needed + 64;
  rig::GuardedBuffer whole(ample);
  ASSERT_EQ(formatV(whole.Data(), ample, format.Data(), list), needed);
  ASSERT_EQ(whole.Data()[needed], 0);
  const unsigned size = random.Below(needed + 3);
  rig::GuardedBuffer small(size);
  const unsigned written = formatV(small.Data(), size, format.Data(), list);
  if (size == 0) {
    ASSERT_EQ(written, 0u);
    return;
  }
  ASSERT_LT(written, size);
  ASSERT_EQ(small.Data()[written], 0);
  if (maker.prefixed) {
    ASSERT_EQ(written, std::min(needed, size - 1));
    ASSERT_EQ(memcmp(small.Data(), whole.Data(), written), 0);
  }
}

TEST_F(FormatRandomTest, EveryFormatStaysInItsBuffer) {
  Random random(RunSeed());
  const auto data = MakeData(random);
  FormatMaker maker(random, data.Data());
  for (int run = 0; run < 10000; ++run) {
    maker.prefixed = random.OneIn(2);
    maker.Make();
    CheckFormat(maker, random);
    if (HasFatalFailure()) {
      FAIL() << "format " << testing::PrintToString(maker.format) << (maker.prefixed ? " (prefixed)" : "");
    }
  }
  EXPECT_EQ(LiveBlocks(), 0u);
}

/// Formats into a guarded buffer of `size` bytes.
std::string WrittenInto(unsigned size, const std::string& text, const std::vector<uint64_t>& slots) {
  const auto format = rig::GuardedBuffer::Of(text);
  rig::GuardedBuffer buffer(size);
  const unsigned written = FormatStringV(buffer.Data(), size, format.Data(),
                                         reinterpret_cast<va_list>(const_cast<uint64_t*>(slots.data())));
  return std::string(buffer.Data(), written);
}

TEST_F(FormatRandomTest, TheFastPathWritesTheSameAsTheFullPath) {
  Random random(RunSeed());
  const auto data = MakeData(random);
  FormatMaker maker(random, data.Data());
  for (int run = 0; run < 20000; ++run) {
    maker.prefixed = random.OneIn(2);
    maker.Make();
    // In a buffer with space for all of it, and in one that cuts it.
    const unsigned ample =
        FormatStringV(nullptr, 0, maker.format.c_str(), reinterpret_cast<va_list>(maker.slots.data())) + 64;
    for (const unsigned size : {ample, random.Below(ample)}) {
      ASSERT_EQ(WrittenInto(size, maker.format, maker.slots),
                WrittenInto(size, maker.positioned, maker.slots))
          << "format " << testing::PrintToString(maker.format) << ", buffer of " << size << " bytes";
    }
  }
  EXPECT_EQ(LiveBlocks(), 0u);
}

/// Memory whose address is valid as any argument: as a pointer it is readable, and its low half is a small
/// number.
class EveryArgument {
 public:
  EveryArgument() {
    for (uint64_t high = 0x10; high < 0x4000 && !block_; ++high) {
      base_ = high << 32;
      block_ = static_cast<char*>(
          VirtualAlloc(reinterpret_cast<void*>(base_), kSize, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    }
  }
  ~EveryArgument() {
    if (block_) VirtualFree(block_, 0, MEM_RELEASE);
  }
  bool IsValid() const { return block_ != nullptr; }
  /// The address; its low half is 0x40, which is valid as a length, a width and a stamp.
  uint64_t Slot() const { return base_ + kOffset; }
  char* Text() const { return block_ + kOffset; }

 private:
  static constexpr size_t kSize = 0x10000;
  static constexpr uint64_t kOffset = 0x40;
  uint64_t base_ = 0;
  char* block_ = nullptr;
};

TEST_F(FormatRandomTest, RandomBytesAsFormatsAreHarmless) {
  const EveryArgument argument;
  ASSERT_TRUE(argument.IsValid());
  // It also serves as an object without operations.
  memcpy(argument.Text(), "\x05\0<&>'\"\xC3", 8);
  const std::vector<uint64_t> slots(1000, argument.Slot());
  const auto list = reinterpret_cast<va_list>(const_cast<uint64_t*>(slots.data()));
  auto& formatV = FormatStringV;
  Random random(RunSeed());
  for (int run = 0; run < 30000; ++run) {
    std::string text;
    for (uint32_t length = random.Below(40); length > 0; --length) {
      static const char kUsual[] =
          "%%%%%%%%{{{}}}:::**..$0123456789-+# ',lltI64dixXucsSPThHOpzZDefgEG~&<>@/^_`#F#x%A";
      text += random.OneIn(10) ? static_cast<char>(1 + random.Below(255))
                               : kUsual[random.Below(sizeof kUsual - 1)];
    }
    // Positions stay within the arguments.
    for (size_t i = 2; i < text.size(); ++i) {
      if (text[i] == '$' && isdigit(static_cast<unsigned char>(text[i - 1])) &&
          isdigit(static_cast<unsigned char>(text[i - 2])))
        text[i] = '.';
    }
    // Widths stay reasonable.
    for (size_t i = 3; i < text.size(); ++i) {
      if (isdigit(static_cast<unsigned char>(text[i])) && isdigit(static_cast<unsigned char>(text[i - 1])) &&
          isdigit(static_cast<unsigned char>(text[i - 2]))) {
        text[i] = 'd';
      }
    }
    const auto format = rig::GuardedBuffer::Of(text);
    const unsigned needed = formatV(nullptr, 0, format.Data(), list);
    ASSERT_LT(needed, 100000u) << testing::PrintToString(text);
    const unsigned size = random.OneIn(3) ? needed + 64 : random.Below(needed + 2);
    rig::GuardedBuffer buffer(size);
    const unsigned written = formatV(buffer.Data(), size, format.Data(), list);
    ASSERT_TRUE(size == 0 ? written == 0 : written < size && buffer.Data()[written] == 0)
        << testing::PrintToString(text);
    const bool hasUrlSafe = text.find("{B") != std::string::npos;
    if (size > needed + 60 && !hasUrlSafe) ASSERT_EQ(written, needed) << testing::PrintToString(text);
  }
  EXPECT_EQ(LiveBlocks(), 0u);
}

}  // namespace
}  // namespace format_test
