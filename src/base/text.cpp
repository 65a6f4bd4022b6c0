#include "base/text.h"

#include <limits.h>
#include <stdint.h>

#include "base/heap.h"

namespace {

// The result of a system comparison for "equal"; 0 means that it failed.
constexpr int kSystemEqual = CSTR_EQUAL;
constexpr DWORD kIgnoreCase = NORM_IGNORECASE | SORT_STRINGSORT;

// Capacity for a conversion to wide text: two units for each byte and for two more, and some slack.
constexpr size_t kWideExtra = 2;
constexpr size_t kWideUnitsPerByte = 2;
constexpr size_t kWideSlack = 512;
// Capacity for a conversion to UTF-8: six bytes for each unit and for two more, and some slack.
constexpr size_t kUtf8Extra = 2;
constexpr size_t kUtf8BytesPerUnit = 6;
constexpr size_t kUtf8Slack = 256;

template <typename Unit>
size_t Length(const Unit* text) {
  const Unit* end = text;
  while (*end) ++end;
  return static_cast<size_t>(end - text);
}

template <typename Unit>
Unit* Copy(Unit* target, const Unit* source) {
  CopyBytes(target, source, (Length(source) + 1) * sizeof(Unit));
  return target;
}

template <typename Unit>
const Unit* FindLast(const Unit* text, Unit unit) {
  const Unit* last = nullptr;
  for (; *text; ++text) {
    if (*text == unit) last = text;
  }
  return last;
}

int AtMostInt(size_t size) {
  return size > INT_MAX ? INT_MAX : static_cast<int>(size);
}

// A string and its length, as the system's comparison takes them.
struct Counted {
  const char* text;
  int length;
};

Counted CountUpTo(const char* text, size_t size) {
  size_t length = 0;
  while (length < size && text[length]) ++length;
  // A length of 0 is not safe to pass; a terminated empty string is.
  if (!length) return {"", -1};
  return {text, AtMostInt(length)};
}

// Replaces a negative length by the real one; false if the text is too long for the system to convert.
template <typename Unit>
bool ResolveLength(const Unit* text, int* length) {
  if (*length >= 0) return true;
  size_t whole = Length(text);
  *length = static_cast<int>(whole);
  return whole <= INT_MAX;
}

}  // namespace

size_t TxtLenA(const char* text) {
  return Length(text);
}

size_t TxtLenW(const wchar_t* text) {
  return Length(text);
}

char* TxtCopyA(char* target, const char* source) {
  return Copy(target, source);
}

wchar_t* TxtCopyW(wchar_t* target, const wchar_t* source) {
  return Copy(target, source);
}

char* TxtCopyNA(char* target, const char* source, size_t size) {
  if (!size) return target;
  size_t copied = 0;
  for (; copied < size - 1 && source[copied]; ++copied) target[copied] = source[copied];
  FillBytes(target + copied, 0, size - copied);
  return target;
}

const char* TxtFindCharA(const char* text, char unit) {
  for (; *text != unit; ++text) {
    if (!*text) return nullptr;
  }
  return text;
}

const wchar_t* TxtFindCharW(const wchar_t* text, wchar_t unit) {
  // On purpose: the terminator is never found, unlike in TxtFindCharA.
  for (; *text; ++text) {
    if (*text == unit) return text;
  }
  return nullptr;
}

const char* TxtFindLastCharA(const char* text, char unit) {
  return FindLast(text, unit);
}

const wchar_t* TxtFindLastCharW(const wchar_t* text, wchar_t unit) {
  return FindLast(text, unit);
}

wchar_t* TxtCutW(wchar_t* text, wchar_t unit) {
  const wchar_t* found = TxtFindCharW(text, unit);
  if (!found) return nullptr;
  text += found - text;
  *text = L'\0';
  return text + 1;
}

const char* TxtFindA(const char* text, const char* wanted) {
  for (; *text; ++text) {
    size_t matched = 0;
    while (wanted[matched] && text[matched] == wanted[matched]) ++matched;
    if (!wanted[matched]) return text;
  }
  // On purpose: null also if both strings are empty.
  return nullptr;
}

int TxtCompareA(const char* a, const char* b) {
  for (; *a && *a == *b; ++a) ++b;
  return static_cast<unsigned char>(*a) - static_cast<unsigned char>(*b);
}

int TxtCompareIA(const char* a, const char* b) {
  return CompareStringA(LOCALE_USER_DEFAULT, kIgnoreCase, a, -1, b, -1) - kSystemEqual;
}

int TxtCompareIW(const wchar_t* a, const wchar_t* b) {
  return CompareStringW(LOCALE_USER_DEFAULT, kIgnoreCase, a, -1, b, -1) - kSystemEqual;
}

int TxtCompareW(const wchar_t* a, const wchar_t* b) {
  return CompareStringW(LOCALE_USER_DEFAULT, SORT_STRINGSORT, a, -1, b, -1) - kSystemEqual;
}

int TxtCompareNIA(const char* a, const char* b, size_t size) {
  Counted left = CountUpTo(a, size);
  Counted right = CountUpTo(b, size);
  return CompareStringA(LOCALE_USER_DEFAULT, kIgnoreCase, left.text, left.length, right.text, right.length) -
         kSystemEqual;
}

void CopyBytes(void* target, const void* source, size_t size) {
  __builtin_memcpy(target, source, size);
}

void MoveBytes(void* target, const void* source, size_t size) {
  __builtin_memmove(target, source, size);
}

void FillBytes(void* target, unsigned char value, size_t size) {
  __builtin_memset(target, value, size);
}

void WipeBytes(void* target, size_t size) {
  // Volatile, so that the compiler does not drop writes that nothing reads.
  auto* bytes = static_cast<volatile unsigned char*>(target);
  for (size_t index = 0; index < size; ++index) bytes[index] = 0;
}

unsigned ParseDecimalA(const char* text) {
  uint64_t value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    value = value * 10 + static_cast<unsigned>(*text - '0');
    if (value > UINT_MAX) value = UINT_MAX;
  }
  return static_cast<unsigned>(value);
}

wchar_t* Utf8ToWide(const char* text, int length) {
  if (!text || !ResolveLength(text, &length)) return nullptr;
  size_t units = (static_cast<size_t>(length) + kWideExtra) * kWideUnitsPerByte;
  HeapStringW wide(static_cast<wchar_t*>(HeapAllocZero(units * sizeof(wchar_t) + kWideSlack)));
  if (!wide || !length) return wide.release();
  if (!MultiByteToWideChar(CP_UTF8, 0, text, length, wide.get(), AtMostInt(units - 1))) return nullptr;
  return wide.release();
}

char* WideToUtf8(const wchar_t* text, int length, int* convertedLength) {
  if (!text || !ResolveLength(text, &length)) return nullptr;
  size_t limit = (static_cast<size_t>(length) + kUtf8Extra) * kUtf8BytesPerUnit;
  HeapStringA utf8(static_cast<char*>(HeapAllocZero(limit + kUtf8Slack)));
  if (!utf8) return nullptr;
  int converted = 0;
  if (length) {
    converted =
        WideCharToMultiByte(CP_UTF8, 0, text, length, utf8.get(), AtMostInt(limit - 1), nullptr, nullptr);
    if (!converted) return nullptr;
  }
  if (convertedLength) *convertedLength = converted;
  return utf8.release();
}
