#include "paths/long_name.h"

#include "base/error_mode.h"
#include "base/heap.h"
#include "base/text.h"
#include "base/windows_owners.h"

namespace {

// The buffer of an expanded path grows by this many units at a time.
constexpr size_t kGrowthStep = 512;

// Returns the number of UTF-16 units that a unit of a name begins: a UTF-8 sequence counts at its first byte.
size_t UnitsBegun(wchar_t) {
  return 1;
}
size_t UnitsBegun(char unit) {
  unsigned char byte = static_cast<unsigned char>(unit);
  constexpr unsigned char kFirstLead = 0xC0;
  constexpr unsigned char kFirstLeadOfPair = 0xF0;
  if (byte >= 0x80 && byte < kFirstLead) return 0;
  return byte >= kFirstLeadOfPair ? 2 : 1;
}

template <typename Unit>
bool IsBarredFromShortNames(Unit unit) {
  switch (unit) {
    case ' ':
    case '+':
    case ',':
    case ';':
    case '=':
    case '[':
    case ']':
      return true;
    default:
      return false;
  }
}

template <typename Unit>
bool HasShortNameShape(const Unit* name, size_t length) {
  if (!length || length > kMaxShortName) return false;
  size_t base = 0;
  size_t i = 0;
  for (; i < length && name[i] != '.'; ++i) {
    if (IsBarredFromShortNames(name[i])) return false;
    base += UnitsBegun(name[i]);
  }
  size_t extension = 0;
  for (; i < length; ++i) extension += UnitsBegun(name[i]);
  return base < kShortBaseLimit && extension < kShortExtensionLimit;
}

// A growing wide text.
class WideText {
 public:
  // Appends `length` units; false if out of memory, and then the text is lost.
  bool Append(const wchar_t* text, size_t length) {
    size_t needed = length_ + length + 1;
    if (needed > capacity_) {
      capacity_ = (needed + kGrowthStep - 1) / kGrowthStep * kGrowthStep;
      text_ =
          HeapStringW(static_cast<wchar_t*>(HeapReAllocOrFree(text_.release(), capacity_ * sizeof(wchar_t))));
      if (!text_) return false;
    }
    CopyBytes(text_.get() + length_, text, length * sizeof(wchar_t));
    length_ += length;
    return true;
  }
  wchar_t* release() { return text_.release(); }

 private:
  HeapStringW text_;
  size_t length_ = 0;
  size_t capacity_ = 0;
};

// "." and ".." are not entries: a search for them finds a folder under another name.
bool IsDots(const wchar_t* name, size_t length) {
  return name[0] == L'.' && (length == 1 || (length == 2 && name[1] == L'.'));
}

bool IsLookedUp(const wchar_t* name, size_t length, bool isLast) {
  if (!length || IsDots(name, length)) return false;
  for (size_t i = 0; i < length; ++i) {
    if (IsBarredFromNames(name[i])) return false;
  }
  return isLast || HasShortNameShape(name, length);
}

}  // namespace

bool HasShortNameShapeW(const wchar_t* name, size_t length) {
  return HasShortNameShape(name, length);
}

bool HasShortNameShapeA(const char* name, size_t length) {
  return HasShortNameShape(name, length);
}

const wchar_t* FoundName(const WIN32_FIND_DATAW* found) {
  const wchar_t* unit = found->cFileName;
  while (*unit == L'?') ++unit;
  return !*unit && found->cAlternateFileName[0] ? found->cAlternateFileName : found->cFileName;
}

wchar_t* ExpandLongNames(const wchar_t* path) {
  size_t size = (TxtLenW(path) + 1) * sizeof(wchar_t);
  HeapStringW copy(static_cast<wchar_t*>(HeapAllocZero(size)));
  if (!copy) return nullptr;
  CopyBytes(copy.get(), path, size);
  if (!TxtFindCharW(path, L'\\')) return copy.release();

  ErrorModeGuard errorMode;
  WideText expanded;
  // The first component is the drive, or empty in a network name.
  bool isFirst = true;
  for (wchar_t* name = copy.get();;) {
    wchar_t* end = name;
    while (*end && *end != L'\\') ++end;
    size_t length = static_cast<size_t>(end - name);
    const wchar_t* chosen = name;
    WIN32_FIND_DATAW found;
    if (!isFirst && IsLookedUp(name, length, !*end)) {
      // End the copy after this component during the look-up.
      wchar_t separator = *end;
      *end = L'\0';
      SearchHandle search(FindFirstFileW(copy.get(), &found));
      *end = separator;
      if (search) {
        chosen = found.cFileName;
        length = TxtLenW(chosen);
      }
    }
    if (!expanded.Append(chosen, length)) return nullptr;
    if (!*end) return expanded.release();
    if (!expanded.Append(L"\\", 1)) return nullptr;
    isFirst = false;
    name = end + 1;
  }
}
