// The bytes of one run, from which a target takes its choices. Used by all targets and answers.
#pragma once

/// Takes values from the front of the bytes. After their end every value is 0, every text empty.
class Data {
 public:
  /// Reads `size` bytes at `bytes`, which must outlive this.
  Data(const uint8_t* bytes, size_t size) : at_(bytes), end_(bytes + size) {}

  /// True if all bytes are taken.
  bool IsEmpty() const { return at_ == end_; }
  /// Takes one byte.
  uint8_t Byte() { return at_ == end_ ? uint8_t{0} : *at_++; }
  /// Takes a number.
  template <typename Number>
  Number Take() {
    Number value{};
    size_t count = std::min(sizeof value, static_cast<size_t>(end_ - at_));
    memcpy(&value, at_, count);
    at_ += count;
    return value;
  }
  /// Takes a number below `limit`, which must be from 1 to 65536; one byte suffices for a limit up to 256.
  uint32_t Below(uint32_t limit) { return (limit <= 256 ? Byte() : Take<uint16_t>()) % limit; }
  /// Takes a truth value.
  bool Flag() { return Byte() & 1; }
  /// Takes a text of at most `most` bytes (up to 255): its length is taken first.
  std::string Text(uint32_t most) { return TextOf(Below(most + 1)); }
  /// Takes a text of `length` bytes, or what is left.
  std::string TextOf(size_t length) {
    length = std::min(length, static_cast<size_t>(end_ - at_));
    std::string text(reinterpret_cast<const char*>(at_), length);
    at_ += length;
    return text;
  }
  /// Takes a text of at most `most` units of UTF-16.
  std::u16string Wide(uint32_t most) {
    uint32_t length = Below(most + 1);
    std::u16string text;
    while (text.size() < length && !IsEmpty()) text.push_back(WideUnit());
    return text;
  }
  /// Takes a unit of UTF-16, most often ASCII.
  char16_t WideUnit() {
    // A byte above ASCII stands for a unit that the next byte completes.
    uint8_t low = Byte();
    return low < 0x80 ? char16_t{low} : static_cast<char16_t>(low << 8 | Byte());
  }
  /// Takes one of `choices`, which must not be empty.
  template <typename Choice, size_t count>
  const Choice& OneOf(const Choice (&choices)[count]) {
    return choices[Below(count)];
  }
  /// Takes all that is left.
  std::string Rest() { return TextOf(static_cast<size_t>(end_ - at_)); }

 private:
  const uint8_t* at_;
  const uint8_t* end_;
};
