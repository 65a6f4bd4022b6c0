// Patterns with "*" and "?", compared with a plain matcher that tries every possibility.

#include "guarded.h"
#include "image.h"
#include "require.h"
#include "target.h"
#include "world.h"

#include "files/wildcard.h"

namespace {

OPERATION(MatchWildcard);
OPERATION(MatchWildcardA);

// The units of a text of which each byte that is not part of a character is the character of its number.
std::u16string UnitsOf(const std::string& text) {
  std::u16string units;
  for (size_t at = 0; at < text.size();) {
    const auto lead = static_cast<uint8_t>(text[at]);
    const size_t length = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF8 ? 4 : 1;
    uint32_t character = lead;
    if (length > 1 && at + length <= text.size()) {
      uint32_t value = lead & (0x7Fu >> length);
      bool isWhole = true;
      for (size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<uint8_t>(text[at + i]);
        isWhole = isWhole && (byte & 0xC0) == 0x80;
        value = value << 6 | (byte & 0x3F);
      }
      constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
      if (isWhole && value >= kSmallest[length] && value <= 0x10FFFF) {
        at += length;
        if (value >= 0x10000) {
          units.push_back(static_cast<char16_t>(0xD7C0 + (value >> 10)));
          units.push_back(static_cast<char16_t>(0xDC00 | (value & 0x3FF)));
        } else {
          units.push_back(static_cast<char16_t>(value));
        }
        continue;
      }
    }
    units.push_back(static_cast<char16_t>(character));
    ++at;
  }
  return units;
}

char16_t Folded(char16_t unit) {
  return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 32) : unit;
}

// A row for each unit of the name says up to which places the pattern can have matched.
bool PlainlyMatches(const std::u16string& name, const std::u16string& pattern) {
  std::vector<bool> reached(pattern.size() + 1);
  reached[0] = true;
  auto spread = [&] {
    for (size_t i = 0; i < pattern.size(); ++i) {
      if (reached[i] && pattern[i] == u'*') reached[i + 1] = true;
    }
  };
  spread();
  for (char16_t unit : name) {
    std::vector<bool> next(pattern.size() + 1);
    for (size_t i = 0; i < pattern.size(); ++i) {
      if (!reached[i]) continue;
      if (pattern[i] == u'*') next[i] = true;
      if (pattern[i] != u'*' && (pattern[i] == u'?' || Folded(pattern[i]) == Folded(unit)))
        next[i + 1] = true;
    }
    reached = next;
    spread();
  }
  // The rest may be "*" and "."
  for (size_t i = 0; i <= pattern.size(); ++i) {
    if (reached[i] && pattern.find_first_not_of(u"*.", i) == std::u16string::npos) return true;
  }
  return false;
}

std::string TakeText(Data* data) {
  constexpr char kCommon[] = "aAb*?.";
  std::string text;
  for (uint32_t count = data->Below(24); count; --count) {
    const uint8_t byte = data->Byte();
    // Half of the bytes mean a character that both texts often have.
    text.push_back(byte & 0x80 && byte & 1 ? kCommon[byte / 2 % (sizeof kCommon - 1)]
                                           : static_cast<char>(data->Byte()));
  }
  text.resize(strlen(text.c_str()));
  return text;
}

}  // namespace

void RunWildcards(Data* data) {
  std::string pattern = TakeText(data);
  std::string name = TakeText(data);
  const std::u16string patternUnits = UnitsOf(pattern);
  const std::u16string nameUnits = UnitsOf(name);
  const char* place = GuardedText(pattern);
  const bool expected = PlainlyMatches(nameUnits, patternUnits);
  const int wide = callMatchWildcard(GuardedWide(nameUnits), place);
  REQUIRE(wide == expected, "the pattern \"%s\" and the wide name \"%s\": %d", pattern.c_str(), name.c_str(),
          wide);
  const int narrow = callMatchWildcardA(GuardedText(name), place);
  REQUIRE(narrow == expected, "the pattern \"%s\" and the name \"%s\": %d", pattern.c_str(), name.c_str(),
          narrow);
}
