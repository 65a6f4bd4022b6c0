// What every text that the library writes into a buffer must be. Used by the targets of texts and dates.
#pragma once

#include "guarded.h"
#include "require.h"

/// Calls `write(buffer, size)`, which writes a text or measures it, with no buffer, with one that is large
/// enough by `spare` bytes, and with one of `size` bytes, each at an unreadable page. Fails if a text is not
/// terminated, is longer than its buffer or its measure, or if the cut text differs from the whole one in
/// more than its last `slack` bytes. Returns the whole text.
template <typename Write>
std::string CheckText(Write write, unsigned size, unsigned spare, unsigned slack) {
  const unsigned measured = write(nullptr, size);
  REQUIRE(measured < kMostGuarded - spare - 1, "a text of %u bytes is longer than its parts", measured);
  char* whole = static_cast<char*>(GuardedBuffer(measured + spare + 1));
  const unsigned written = write(whole, measured + spare + 1);
  REQUIRE(written == measured, "measured %u bytes, written %u", measured, written);
  REQUIRE(whole[written] == '\0', "a text of %u bytes is not terminated", written);
  std::string text(whole, written);
  size %= measured + 2;
  char* part = static_cast<char*>(GuardedBuffer(size));
  const unsigned count = write(part, size);
  if (size == 0) {
    REQUIRE(count == 0, "%u bytes are written into none", count);
    return text;
  }
  REQUIRE(count < size && part[count] == '\0', "%u bytes are written into %u", count, size);
  const size_t room = std::min(written, size - 1);
  size_t same = 0;
  while (same < std::min<size_t>(count, room) && part[same] == text[same]) ++same;
  REQUIRE(same + slack >= room, "a text of %u bytes that is cut to %u bytes is another one from byte %zu on",
          written, size - 1, same);
  return text;
}
