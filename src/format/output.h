// The target of a conversion, and the byte copying that the writers share. Used by the files of the format
// engine.
#pragma once

#include <stdint.h>

/// Reads 8 bytes at any address, the first one lowest.
inline uint64_t Load8(const void* from) {
  uint64_t value;
  __builtin_memcpy(&value, from, sizeof value);
  return value;
}

/// Stores `value` at any address, its lowest byte first.
template <class Value>
inline void Store(void* to, Value value) {
  __builtin_memcpy(to, &value, sizeof value);
}

/// Stores the `count` lowest bytes of `value`; `count` must be below 8.
inline void StoreLow(char* to, uint64_t value, uint32_t count) {
  if (count & 4) {
    Store(to, static_cast<uint32_t>(value));
    to += 4;
    value >>= 32;
  }
  if (count & 2) {
    Store(to, static_cast<uint16_t>(value));
    to += 2;
    value >>= 16;
  }
  if (count & 1) *to = static_cast<char>(value);
}

/// Copies a short text without touching a byte after it; the blocks must not overlap.
inline void CopyShort(char* to, const char* from, uint32_t count) {
#pragma clang loop unroll(disable) vectorize(disable)
  while (count >= 8) {
    Store(to, Load8(from));
    to += 8;
    from += 8;
    count -= 8;
  }
  if (count & 4) {
    __builtin_memcpy(to, from, 4);
    to += 4;
    from += 4;
  }
  if (count & 2) {
    __builtin_memcpy(to, from, 2);
    to += 2;
    from += 2;
  }
  if (count & 1) __builtin_memcpy(to, from, 1);
}

/// Writes `byte` `count` times without touching a byte after them.
inline void FillShort(char* to, char byte, uint32_t count) {
  const uint64_t pattern = 0x0101010101010101 * static_cast<uint8_t>(byte);
#pragma clang loop unroll(disable) vectorize(disable)
  for (; count >= 8; count -= 8, to += 8) Store(to, pattern);
  StoreLow(to, pattern, count);
}

/// Returns the top bit of every zero byte of `word`; exact up to and including the lowest zero byte.
constexpr uint64_t ZeroBytes(uint64_t word) {
  constexpr uint64_t kEachByte = 0x0101010101010101;
  constexpr uint64_t kTopBits = 0x8080808080808080;
  return (word - kEachByte) & ~word & kTopBits;
}

/// True if the 8 bytes at `text` are in one page, so that reading them cannot fault if the first one is
/// readable.
inline bool IsWithinPage(const char* text) {
  constexpr uintptr_t kPageSize = 4096;
  return (reinterpret_cast<uintptr_t>(text) & (kPageSize - 1)) <= kPageSize - 8;
}

/// Reads the 8 bytes at `text`, for which IsWithinPage is true. The text may end in them.
inline uint64_t LoadTextEnd(const char* text) {
  uint64_t value;
  __builtin_memcpy(&value, text, sizeof value);
  return value;
}

/// Copies from `text` to `at` up to the terminator, a byte `stop` or the end of `room`, 8 bytes at a time
/// where that is safe. Advances `at`, reduces `room`, and returns the place in `text` where it stopped.
/// Touches nothing after the copied bytes. With a null `at` only counts the bytes.
template <char stop>
inline const char* CopyRun(char** at, uint32_t* room, const char* text) {
  constexpr uint64_t kEachStop = 0x0101010101010101 * static_cast<uint8_t>(stop);
  if (!*at) {
    for (; *room != 0 && *text != 0 && *text != stop; --*room) ++text;
    return text;
  }
  for (;;) {
    if (*room >= 8 && IsWithinPage(text)) {
      const uint64_t word = LoadTextEnd(text);
      const uint64_t ends = ZeroBytes(word) | (stop != 0 ? ZeroBytes(word ^ kEachStop) : 0);
      const uint32_t count = ends == 0 ? 8 : static_cast<uint32_t>(__builtin_ctzll(ends)) / 8;
      text += count;
      *room -= count;
      if (ends == 0) {
        Store(*at, word);
        *at += 8;
        continue;
      }
      StoreLow(*at, word, count);
      *at += count;
      return text;
    }
    if (*room == 0 || *text == 0 || *text == stop) return text;
    *(*at)++ = *text++;
    --*room;
  }
}

/// The place where one conversion writes, and the bytes that it may still write there. Text that does not fit
/// is cut.
struct Output {
  /// The next byte, or null if the length is only measured.
  char* at;
  /// Bytes that may still be written, without the terminator.
  uint32_t room;

  /// Counts `count` bytes as written; they must not exceed `room`.
  void Advance(uint32_t count) {
    if (at) at += count;
    room -= count;
  }

  /// Writes as many of the `count` bytes of `text` as fit.
  [[gnu::noinline]] void Put(const char* text, uint32_t count);

  /// Writes `byte` if it fits.
  void PutByte(char byte) {
    if (room == 0) return;
    if (at) *at++ = byte;
    --room;
  }

  /// Writes `byte` `count` times, or as often as it fits.
  [[gnu::noinline]] void Fill(char byte, uint64_t count);
};
