#include "files/wildcard.h"

#include <stddef.h>

namespace {

// The UTF-16 units of a UTF-8 text, one by one. A copy remembers a place in the text.
class Utf8Units {
 public:
  explicit Utf8Units(const char* text) : at_(reinterpret_cast<const unsigned char*>(text)) {}

  // Returns the current unit; 0 at the end.
  unsigned Peek() const {
    if (isSecondHalf_) return 0xDC00 + (Decode().character & 0x3FF);
    unsigned character = Decode().character;
    return character < kFirstOfPairs ? character : 0xD7C0 + (character >> 10);
  }
  void Skip() {
    Sequence here = Decode();
    if (!isSecondHalf_ && here.character >= kFirstOfPairs) {
      isSecondHalf_ = true;
      return;
    }
    isSecondHalf_ = false;
    at_ += here.length;
  }

 private:
  // The first character that takes two units, and the first number that is not a character.
  static constexpr unsigned kFirstOfPairs = 0x10000;
  static constexpr unsigned kEndOfCharacters = 0x110000;

  struct Sequence {
    unsigned character;
    size_t length;
  };

  // Decodes the current sequence; a byte that begins none is the character of its number.
  Sequence Decode() const {
    static constexpr struct {
      unsigned mask, lead, smallest;
    } kForms[] = {{0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, kFirstOfPairs}};
    size_t length = 1;
    for (const auto& form : kForms) {
      ++length;
      if ((at_[0] & form.mask) != form.lead) continue;
      unsigned character = at_[0] & ~form.mask & 0xFF;
      for (size_t i = 1; i < length; ++i) {
        // The terminator is not a continuation byte, so nothing after it is read.
        if ((at_[i] & 0xC0) != 0x80) return {at_[0], 1};
        character = character << 6 | (at_[i] & 0x3F);
      }
      if (character < form.smallest || character >= kEndOfCharacters) return {at_[0], 1};
      return {character, length};
    }
    return {at_[0], 1};
  }

  const unsigned char* at_;
  bool isSecondHalf_ = false;
};

// The units of a wide text, one by one.
class WideUnits {
 public:
  explicit WideUnits(const wchar_t* text) : at_(text) {}
  unsigned Peek() const { return *at_; }
  void Skip() { ++at_; }

 private:
  const wchar_t* at_;
};

unsigned FoldCase(unsigned unit) {
  return unit >= 'a' && unit <= 'z' ? unit - ('a' - 'A') : unit;
}

bool MayStandBehindName(Utf8Units pattern) {
  while (pattern.Peek() == '*' || pattern.Peek() == '.') pattern.Skip();
  return !pattern.Peek();
}

// On a mismatch only the last "*" takes one more character: whatever an earlier one could take, the last one
// could take as well.
template <typename NameUnits>
bool Matches(NameUnits name, Utf8Units pattern) {
  bool hasStar = false;
  NameUnits starName = name;
  Utf8Units behindStar = pattern;
  while (unsigned unit = name.Peek()) {
    unsigned wanted = pattern.Peek();
    if (wanted == '*') {
      pattern.Skip();
      if (!pattern.Peek()) return true;
      hasStar = true;
      starName = name;
      behindStar = pattern;
    } else if (wanted == '?' || (wanted && FoldCase(wanted) == FoldCase(unit))) {
      name.Skip();
      pattern.Skip();
    } else if (hasStar) {
      starName.Skip();
      name = starName;
      pattern = behindStar;
    } else {
      return false;
    }
  }
  return MayStandBehindName(pattern);
}

}  // namespace

int MatchWildcard(const wchar_t* name, const char* pattern) {
  if (!pattern) return 1;
  return name && Matches(WideUnits(name), Utf8Units(pattern));
}

int MatchWildcardA(const char* name, const char* pattern) {
  if (!pattern) return 1;
  return name && Matches(Utf8Units(name), Utf8Units(pattern));
}
