// Prints arguments and results as the trace shows them. Used by the dispatch of calls (call.h).
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

/// Quotes text; escapes control characters, quotes and backslashes. Bytes outside ASCII stay unchanged.
std::string Quote(std::string_view text);
/// Does the same for wide text, as UTF-8; a lone surrogate becomes \uD800 or the like.
std::string Quote(std::wstring_view text);
/// Converts wide text to UTF-8.
std::string ToUtf8(std::wstring_view text);
/// Converts UTF-8 to wide text.
std::wstring ToWide(std::string_view text);
/// Returns the value as "0x1f".
std::string HexText(uint64_t value);
/// Returns the GUID as "{00000000-0000-0000-C000-000000000046}".
std::string GuidText(const GUID& guid);
/// Returns the value of a VARIANT by its type.
std::string VariantText(const VARIANT& value);
/// Returns a handle's text: its name in the ledger, a predefined key's name, "null" or "*".
std::string HandleText(const Ledger& ledger, uint64_t value);

/// The variable arguments of a call with a format text.
struct VariableArguments {
  const wchar_t* format;  ///< The format text that describes them.
  va_list list;           ///< The arguments from the first on.
};
/// Prints the arguments as the format text describes them, with commas between: text for "%s", numbers for
/// "%d" and "%u" of any width. At any other directive it stops with "...", because the arguments after it
/// cannot be read.
std::string VariableText(VariableArguments arguments);

/// True if the type is one of the system's handle types.
template <class T>
inline constexpr bool kIsHandle =
    std::is_same_v<T, HKEY> || std::is_same_v<T, HMODULE> || std::is_same_v<T, HWND> ||
    std::is_same_v<T, HDESK> || std::is_same_v<T, HWINSTA> || std::is_same_v<T, void*>;

/// Converts any argument to bits.
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

/// Prints an integer: hexadecimal if requested, if it is a failing HRESULT or if it is at least 65536; else
/// decimal.
std::string IntegerText(int64_t value, bool isSigned, size_t size, bool hex);

/// Prints a value of any type as the trace shows it.
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

/// Prints text or bytes whose length is given.
std::string PrintCounted(uint64_t data, int64_t count, size_t unit, bool text);

}  // namespace rig
