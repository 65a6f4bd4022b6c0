#include "format/text_sink.h"

namespace {

constexpr char kCapitalDigits[] = "0123456789ABCDEF";
constexpr char kSmallDigits[] = "0123456789abcdef";

constexpr struct {
  uint32_t flag;
  TextEscape escape;
} kPrecedence[] = {
    {kPlus, TextEscape::kUrl},
    {kTilde, TextEscape::kQuotedString},
    {kEntity, TextEscape::kEntity},
    {kHexAt, TextEscape::kHexEntity},
    {kHexSlash, TextEscape::kHexPercent},
    {kCdata, TextEscape::kCdata},
    {kBacktick, TextEscape::kBacktick},
    {kEscapeDouble, TextEscape::kBackslashDouble},
    {kDoubleQuote, TextEscape::kDoubledQuote},
    {kEscapeQuote, TextEscape::kBackslashQuote},
};

/// Returns the bytes of the UTF-8 sequence at `at`, 2 to 6, or 0 if there is no whole one.
uint32_t SequenceLength(const uint8_t* at, uint32_t left) {
  const uint8_t lead = *at;
  if (lead < 0xC0 || lead > 0xFD) return 0;
  // The sequence has as many bytes as its first byte has leading ones.
  const uint32_t length = static_cast<uint32_t>(__builtin_clz(~(static_cast<uint32_t>(lead) << 24)));
  if (length > left) return 0;
  for (uint32_t i = 1; i < length; ++i) {
    if ((at[i] & 0xC0) != 0x80) return 0;
  }
  return length;
}

bool IsUnreserved(uint8_t c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '.' ||
         c == '_' || c == '~';
}

/// Returns the entity of `c`, or null.
const char* EntityOf(uint8_t c) {
  switch (c) {
    case '<':
      return "%lt;";
    case '>':
      return "%gt;";
    case '&':
      return "%amp;";
    case '\'':
      return "%#39;";
    case '"':
      return "%dquo;";
    default:
      return nullptr;
  }
}

bool IsHexEscaped(uint8_t c) {
  return c == '"' || c == '%' || c == '&' || c == '\'' || c == '<' || c == '>';
}

}  // namespace

TextEscape ChooseEscape(uint32_t flags) {
  for (const auto& entry : kPrecedence) {
    if (flags & entry.flag) return entry.escape;
  }
  return TextEscape::kNone;
}

TextSink::TextSink(Output* output, uint32_t flags)
    : output_(output),
      escape_(ChooseEscape(flags)),
      upper_((flags & kUpperCase) != 0),
      lower_((flags & kLowerCase) != 0),
      full_(false),
      hasMarkup_(false),
      brackets_(0) {
}

void TextSink::Put(const char* text, uint32_t length) {
  const uint8_t* at = reinterpret_cast<const uint8_t*>(text);
  while (!full_ && length != 0) {
    if (*at == 0) {
      if (length == kToTerminator) break;
      ++at;
      --length;
      continue;
    }
    Unit unit;
    Translate(at, length, &unit);
    if (unit.length > output_->room) {
      full_ = true;
      break;
    }
    output_->Put(unit.bytes, unit.length);
    at += unit.taken;
    if (length != kToTerminator) length -= unit.taken;
  }
}

void TextSink::Translate(const uint8_t* at, uint32_t left, Unit* unit) {
  uint8_t c = *at;
  const bool isMarkup = c == '&' || c == '<' || c == '>';
  const bool closesBrackets = c == '>' && brackets_ == 2;
  if (isMarkup) hasMarkup_ = true;
  brackets_ = static_cast<uint8_t>(c != ']' ? 0 : brackets_ == 2 ? 2 : brackets_ + 1);
  if (upper_) {
    if (c >= 'a' && c <= 'z') c -= 'a' - 'A';
  } else if (lower_) {
    if (c >= 'A' && c <= 'Z') c += 'a' - 'A';
  }

  char* bytes = unit->bytes;
  unit->taken = 1;
  unit->length = 1;
  bytes[0] = static_cast<char>(c);

  const auto hex = [&](const char* digits) {
    bytes[0] = '%';
    bytes[1] = digits[c >> 4];
    bytes[2] = digits[c & 15];
    unit->length = 3;
  };
  const auto prefixed = [&](char prefix, char second) {
    bytes[0] = prefix;
    bytes[1] = second;
    unit->length = 2;
  };

  const bool knowsUtf8 = escape_ >= TextEscape::kQuotedString && escape_ <= TextEscape::kHexPercent;
  if (c >= 0x80 && knowsUtf8) {
    const uint32_t sequence = SequenceLength(at, left);
    if (sequence != 0) {
      for (uint32_t i = 1; i < sequence; ++i) bytes[i] = static_cast<char>(at[i]);
      unit->taken = sequence;
      unit->length = sequence;
    } else if (escape_ == TextEscape::kQuotedString) {
      bytes[0] = '?';
    } else if (escape_ == TextEscape::kHexPercent) {
      hex(kSmallDigits);
    } else {
      bytes[0] = '&';
      bytes[1] = '#';
      bytes[2] = static_cast<char>('0' + c / 100);
      bytes[3] = static_cast<char>('0' + c / 10 % 10);
      bytes[4] = static_cast<char>('0' + c % 10);
      bytes[5] = ';';
      unit->length = 6;
    }
    return;
  }

  switch (escape_) {
    case TextEscape::kUrl:
      if (!IsUnreserved(c)) hex(kCapitalDigits);
      break;
    case TextEscape::kQuotedString:
      if (c == '"' || c == '\\') {
        prefixed('\\', static_cast<char>(c));
      } else if (c == '\t') {
        prefixed('\\', 't');
      } else if (c == '\n' || c == '\r') {
        prefixed('\\', 'n');
        if (c == '\r' && left > 1 && at[1] == '\n') unit->taken = 2;
      } else if (c < ' ') {
        bytes[0] = ' ';
      }
      break;
    case TextEscape::kEntity:
      if (const char* entity = EntityOf(c)) {
        for (unit->length = 0; entity[unit->length]; ++unit->length)
          bytes[unit->length] = entity[unit->length];
      }
      break;
    case TextEscape::kHexEntity:
    case TextEscape::kHexPercent:
      if (IsHexEscaped(c)) hex(kCapitalDigits);
      break;
    case TextEscape::kCdata:
      if (closesBrackets) bytes[0] = ' ';
      break;
    case TextEscape::kBacktick:
      if (c == '\'') bytes[0] = '`';
      if (c < ' ' && c != '\t') bytes[0] = ' ';
      break;
    case TextEscape::kBackslashDouble:
      if (c == '"' || c == '\\') prefixed('\\', static_cast<char>(c));
      break;
    case TextEscape::kDoubledQuote:
      if (c == '\'') prefixed('\'', '\'');
      break;
    case TextEscape::kBackslashQuote:
      if (c == '\'' || c == '\\') prefixed('\\', static_cast<char>(c));
      break;
    case TextEscape::kNone:
      break;
  }
}
