// The form of a drive at the beginning of a path. Used by the path value and by those who judge a path's
// text.
#pragma once

/// Whether `unit` is an ASCII letter.
template <typename Unit>
constexpr bool IsAsciiLetter(Unit unit) {
  return (unit >= 'A' && unit <= 'Z') || (unit >= 'a' && unit <= 'z');
}

/// Whether the two units at `text` are a drive, "X:". A terminator ends the look.
template <typename Unit>
constexpr bool IsDrive(const Unit* text) {
  return IsAsciiLetter(text[0]) && text[1] == ':';
}

/// Whether terminated `text` begins with "X:\".
template <typename Unit>
constexpr bool IsDriveAbsolute(const Unit* text) {
  return IsDrive(text) && text[2] == '\\';
}
