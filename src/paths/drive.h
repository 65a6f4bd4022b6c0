// Tests for a drive at the beginning of a path. Used by the path value and by code that checks the text of a
// path.
#pragma once

/// True if `unit` is an ASCII letter.
template <typename Unit>
constexpr bool IsAsciiLetter(Unit unit) {
  return (unit >= 'A' && unit <= 'Z') || (unit >= 'a' && unit <= 'z');
}

/// True if the two units at `text` are a drive, "X:". Reads nothing after a terminator.
template <typename Unit>
constexpr bool IsDrive(const Unit* text) {
  return IsAsciiLetter(text[0]) && text[1] == ':';
}

/// True if terminated `text` begins with "X:\".
template <typename Unit>
constexpr bool IsDriveAbsolute(const Unit* text) {
  return IsDrive(text) && text[2] == '\\';
}
