// Writes arguments and results as the trace shows them. Used by the dispatch of calls (call.h).
#pragma once

#include <windows.h>

#include <oleauto.h>

#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "rig/declaration.h"
#include "rig/ledger.h"

namespace rig {

/// Quoted text; control characters, quotes and backslashes escaped. Bytes outside ASCII stay as they are.
std::string Quote(std::string_view text);
/// The same for wide text, as UTF-8; a lone surrogate reads \uD800.
std::string Quote(std::wstring_view text);
/// Wide text as UTF-8.
std::string ToUtf8(std::wstring_view text);
/// UTF-8 as wide text.
std::wstring ToWide(std::string_view text);
/// "0x1f".
std::string HexText(uint64_t value);
/// "{00000000-0000-0000-C000-000000000046}".
std::string GuidText(const GUID& guid);
/// A VARIANT's value, by its type.
std::string VariantText(const VARIANT& value);
/// A handle: the name that the ledger gave it, a predefined key's name, "null" or "*".
std::string HandleText(const Ledger& ledger, uint64_t value);

/// The arguments after a format text.
struct VariableArguments {
  const wchar_t* format;  ///< The text that says what they are.
  va_list list;           ///< Where they begin.
};
/// The arguments as the format text says, with commas between: text for "%s", numbers for "%d" and "%u" of
/// any width. Behind any other directive, which nobody can read, it ends with "...".
std::string VariableText(VariableArguments arguments);

/// True if the type is one of the system's handle types.
template <class T>
inline constexpr bool kIsHandle =
    std::is_same_v<T, HKEY> || std::is_same_v<T, HMODULE> || std::is_same_v<T, HWND> ||
    std::is_same_v<T, HDESK> || std::is_same_v<T, HWINSTA> || std::is_same_v<T, void*>;

/// Any argument as bits.
template <class T>
uint64_t ToWord(const T& value) {
  if constexpr (std::is_pointer_v<T>) {
    return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(value));
  } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
    return static_cast<uint64_t>(value);
  } else {
    return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(&value));
  }
}

/// An integer: decimal, or hexadecimal if requested or if it is a failing HRESULT or at least 65536.
std::string IntegerText(int64_t value, bool isSigned, size_t size, bool hex);

/// A value of any type, as the trace shows it.
template <class T>
std::string Print(const Ledger& ledger, const T& value, bool hex) {
  if constexpr (std::is_same_v<T, const char*>) {
    uint64_t word = ToWord(value);
    return word == 0 ? "null" : word < 0x10000 ? "#" + std::to_string(word) : Quote(std::string_view(value));
  } else if constexpr (std::is_same_v<T, const wchar_t*>) {
    uint64_t word = ToWord(value);
    return word == 0 ? "null" : word < 0x10000 ? "#" + std::to_string(word) : Quote(std::wstring_view(value));
  } else if constexpr (std::is_same_v<T, const GUID*>) {
    return value == nullptr ? "null" : GuidText(*value);
  } else if constexpr (std::is_same_v<T, GUID>) {
    return GuidText(value);
  } else if constexpr (std::is_same_v<T, VARIANT>) {
    return VariantText(value);
  } else if constexpr (std::is_same_v<T, VariableArguments>) {
    return VariableText(value);
  } else if constexpr (kIsHandle<T> || std::is_pointer_v<T>) {
    return HandleText(ledger, ToWord(value));
  } else if constexpr (std::is_floating_point_v<T>) {
    return std::to_string(value);
  } else if constexpr (std::is_enum_v<T>) {
    return IntegerText(static_cast<int64_t>(value), false, sizeof(T), hex);
  } else if constexpr (std::is_integral_v<T>) {
    return IntegerText(static_cast<int64_t>(value), std::is_signed_v<T>, sizeof(T), hex);
  } else {
    return "{...}";
  }
}

/// The argument as text or bytes of a counted length.
std::string PrintCounted(uint64_t data, int64_t count, size_t unit, bool text);

}  // namespace rig
