// Strings without a C runtime: lengths, copies, searches, comparisons, and the conversions between UTF-8 and
// UTF-16. Used by everything that handles text.
//
// Names end in A for 8-bit text (UTF-8 or ANSI bytes alike) and in W for wide text. A "unit" is a byte or a
// UTF-16 code unit. Strings are zero-terminated and not null unless a comment says otherwise.
#pragma once

#include <stddef.h>
#include <windows.h>

/// Turns each "/" in terminated `text` (or null) into "\", in place: in a path that a person or a setting
/// wrote.
template <typename Unit>
void UseBackslashes(Unit* text) {
  for (; text && *text; ++text) {
    if (*text == '/') *text = '\\';
  }
}

extern "C" {

/// The number of units before the terminator.
size_t TxtLenA(const char* text);
/// The number of units before the terminator.
size_t TxtLenW(const wchar_t* text);

/// Copies `source` and its terminator to `target`, which does not overlap it, and returns `target`.
char* TxtCopyA(char* target, const char* source);
/// Copies `source` and its terminator to `target`, which does not overlap it, and returns `target`.
wchar_t* TxtCopyW(wchar_t* target, const wchar_t* source);

/// Fills exactly `size` bytes at `target`: at most `size` - 1 bytes of `source`, then zeros, of which there
/// is always one. Nothing is written when `size` is 0. Returns `target`.
char* TxtCopyNA(char* target, const char* source, size_t size);

/// The first `unit` in `text`, or null. The terminator counts: looking for unit 0 finds it.
const char* TxtFindCharA(const char* text, char unit);
/// The first `unit` before the terminator of `text`, or null; so in an empty string nothing is found, and
/// unit 0 never is.
const wchar_t* TxtFindCharW(const wchar_t* text, wchar_t unit);
/// The last `unit` before the terminator of `text`, or null.
const char* TxtFindLastCharA(const char* text, char unit);
/// The last `unit` before the terminator of `text`, or null.
const wchar_t* TxtFindLastCharW(const wchar_t* text, wchar_t unit);

/// Ends `text` at its first `unit`, which is overwritten by a terminator, and returns what follows; null, and
/// nothing is changed, when it has none.
wchar_t* TxtCutW(wchar_t* text, wchar_t unit);

/// The first place in `text` where `wanted` stands (case matters), or null. An empty `wanted` stands at the
/// start; in an empty `text` nothing is found, not even an empty `wanted`.
const char* TxtFindA(const char* text, const char* wanted);

/// The difference of the first pair of bytes that differ, each taken as 0 to 255 (negative when `a` comes
/// first), or 0 when the strings are equal.
int TxtCompareA(const char* a, const char* b);
/// Orders two strings in the user's locale without regard to case, punctuation counting like any character:
/// -1, 0 or 1; -2 when the system cannot compare them.
int TxtCompareIA(const char* a, const char* b);
/// Orders two strings in the user's locale without regard to case, punctuation counting like any character:
/// -1, 0 or 1; -2 when the system cannot compare them.
int TxtCompareIW(const wchar_t* a, const wchar_t* b);
/// Like TxtCompareIW, but case matters.
int TxtCompareW(const wchar_t* a, const wchar_t* b);
/// Like TxtCompareIA over at most `size` bytes of each string; a terminator ends a string earlier.
int TxtCompareNIA(const char* a, const char* b, size_t size);

/// Copies `size` bytes from front to back between blocks that do not overlap.
void CopyBytes(void* target, const void* source, size_t size);
/// Copies `size` bytes between blocks that may overlap in any way.
void MoveBytes(void* target, const void* source, size_t size);
/// Sets `size` bytes to `value`.
void FillBytes(void* target, unsigned char value, size_t size);

/// Sets `size` bytes of a secret to 0; unlike FillBytes, also where nothing reads them afterwards.
void WipeBytes(void* target, size_t size);

/// The value of the ASCII digits that `text` begins with; 0 when it begins with none, and the largest value
/// when they stand for more than that.
unsigned ParseDecimalA(const char* text);

/// Converts `length` bytes of UTF-8 (negative: up to the terminator) into a new wide string, which the
/// caller frees with HeapFreeSafe. Null for a null `text`, when memory lacks, and when the system refuses.
/// Bytes that are not UTF-8 become U+FFFD.
wchar_t* Utf8ToWide(const char* text, int length);

/// Converts `length` units (negative: up to the terminator) into a new UTF-8 string, which the caller frees
/// with HeapFreeSafe, and stores its length in bytes at `convertedLength` unless that is null. Null for a
/// null `text`, when memory lacks, and when the system refuses. Lone surrogates become U+FFFD.
char* WideToUtf8(const wchar_t* text, int length, int* convertedLength);

}  // extern "C"
