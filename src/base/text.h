// Strings without a C runtime: lengths, copies, searches, comparisons, and conversions between UTF-8 and
// UTF-16. Used by everything that handles text.
//
// Names end in A for 8-bit text (UTF-8 or ANSI bytes alike) and in W for wide text. A "unit" is a byte or a
// UTF-16 code unit. Strings are zero-terminated and not null unless a comment says otherwise.
#pragma once

#include <stddef.h>
#include <windows.h>

/// Turns each "/" in terminated `text` (or null) into "\", in place. For a path that a person or a setting
/// wrote.
template <typename Unit>
void UseBackslashes(Unit* text) {
  for (; text && *text; ++text) {
    if (*text == '/') *text = '\\';
  }
}

extern "C" {

/// Returns the number of units before the terminator.
size_t TxtLenA(const char* text);
/// Returns the number of units before the terminator.
size_t TxtLenW(const wchar_t* text);

/// Copies `source` and its terminator to `target` and returns `target`. The two must not overlap.
char* TxtCopyA(char* target, const char* source);
/// Copies `source` and its terminator to `target` and returns `target`. The two must not overlap.
wchar_t* TxtCopyW(wchar_t* target, const wchar_t* source);

/// Fills exactly `size` bytes at `target`: at most `size` - 1 bytes of `source`, then zeros (at least one).
/// Writes nothing if `size` is 0. Returns `target`.
char* TxtCopyNA(char* target, const char* source, size_t size);

/// Finds the first `unit` in `text`; null if there is none. The terminator counts: searching for unit 0 finds
/// it.
const char* TxtFindCharA(const char* text, char unit);
/// Finds the first `unit` before the terminator of `text`; null if there is none. So nothing is found in an
/// empty string, and unit 0 is never found.
const wchar_t* TxtFindCharW(const wchar_t* text, wchar_t unit);
/// Finds the last `unit` before the terminator of `text`; null if there is none.
const char* TxtFindLastCharA(const char* text, char unit);
/// Finds the last `unit` before the terminator of `text`; null if there is none.
const wchar_t* TxtFindLastCharW(const wchar_t* text, wchar_t unit);

/// Overwrites the first `unit` in `text` with a terminator and returns the text after it. Returns null and
/// changes nothing if `text` has no such unit.
wchar_t* TxtCutW(wchar_t* text, wchar_t unit);

/// Finds the first occurrence of `wanted` in `text` (case matters); null if there is none. An empty `wanted`
/// is found at the start. In an empty `text` nothing is found, not even an empty `wanted`.
const char* TxtFindA(const char* text, const char* wanted);

/// Returns the difference of the first two bytes that differ, each taken as 0 to 255 (negative if `a` comes
/// first), or 0 if the strings are equal.
int TxtCompareA(const char* a, const char* b);
/// Compares two strings in the user's locale without regard to case; punctuation counts like any character.
/// Returns -1, 0 or 1; -2 if the system cannot compare them.
int TxtCompareIA(const char* a, const char* b);
/// Compares two strings in the user's locale without regard to case; punctuation counts like any character.
/// Returns -1, 0 or 1; -2 if the system cannot compare them.
int TxtCompareIW(const wchar_t* a, const wchar_t* b);
/// Like TxtCompareIW, but case matters.
int TxtCompareW(const wchar_t* a, const wchar_t* b);
/// Like TxtCompareIA, but compares at most `size` bytes of each string; a terminator ends a string earlier.
int TxtCompareNIA(const char* a, const char* b, size_t size);

/// Copies `size` bytes from front to back. The blocks must not overlap.
void CopyBytes(void* target, const void* source, size_t size);
/// Copies `size` bytes. The blocks may overlap in any way.
void MoveBytes(void* target, const void* source, size_t size);
/// Sets `size` bytes to `value`.
void FillBytes(void* target, unsigned char value, size_t size);

/// Sets `size` bytes of a secret to 0; unlike FillBytes, also if nothing reads them afterwards.
void WipeBytes(void* target, size_t size);

/// Returns the value of the ASCII digits at the start of `text`; 0 if there are none, and the largest value
/// if the digits exceed it.
unsigned ParseDecimalA(const char* text);

/// Converts `length` bytes of UTF-8 (negative: up to the terminator) into a new wide string, which the
/// caller frees with HeapFreeSafe. Returns null if `text` is null, if out of memory, and if the system fails
/// to convert it. Bytes that are not UTF-8 become U+FFFD.
wchar_t* Utf8ToWide(const char* text, int length);

/// Converts `length` units (negative: up to the terminator) into a new UTF-8 string, which the caller frees
/// with HeapFreeSafe, and stores its length in bytes at `convertedLength` unless that is null. Returns null
/// if `text` is null, if out of memory, and if the system fails to convert it. Lone surrogates become U+FFFD.
char* WideToUtf8(const wchar_t* text, int length, int* convertedLength);

}  // extern "C"
