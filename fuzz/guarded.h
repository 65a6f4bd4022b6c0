// Memory that ends at an unreadable page, for texts, arguments and buffers of the image: a byte read or
// written after their end is a crash.
#pragma once

/// The most bytes of one place.
constexpr size_t kMostGuarded = 1 << 17;

/// Gives back all places of the last run.
void ForgetGuarded();

/// Returns `size` bytes, at most kMostGuarded, that end at an unreadable page. Their content is not zero.
/// Valid until the end of the run.
void* GuardedBuffer(size_t size);
/// Returns a place that holds the bytes of `text` and nothing after them.
char* GuardedBytes(std::string_view text);
/// The same, with a terminator.
char* GuardedText(std::string_view text);
/// Returns a place that holds the units of `text` and nothing after them.
wchar_t* GuardedUnits(std::u16string_view text);
/// The same, with a terminator.
wchar_t* GuardedWide(std::u16string_view text);
