#include "rig/print.h"

#include <cstdio>
#include <cwchar>

#include "rig/secrets.h"

namespace rig {
namespace {

void AppendEscaped(std::string& out, uint32_t unit) {
  char text[12];
  switch (unit) {
    case '"':
    case '\\':
      out += '\\';
      out += static_cast<char>(unit);
      return;
    case '\n':
      out += "\\n";
      return;
    case '\r':
      out += "\\r";
      return;
    case '\t':
      out += "\\t";
      return;
    case 0:
      out += "\\0";
      return;
    default:
      std::snprintf(text, sizeof text, unit > 0xFF ? "\\u%04X" : "\\x%02X", static_cast<unsigned>(unit));
      out += text;
  }
}

bool NeedsEscape(uint32_t unit) {
  return unit < 0x20 || unit == 0x7F || unit == '"' || unit == '\\';
}

void AppendUtf8(std::string& out, uint32_t point) {
  if (point < 0x80) {
    out += static_cast<char>(point);
  } else if (point < 0x800) {
    out += static_cast<char>(0xC0 | point >> 6);
    out += static_cast<char>(0x80 | (point & 0x3F));
  } else if (point < 0x10000) {
    out += static_cast<char>(0xE0 | point >> 12);
    out += static_cast<char>(0x80 | (point >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (point & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | point >> 18);
    out += static_cast<char>(0x80 | (point >> 12 & 0x3F));
    out += static_cast<char>(0x80 | (point >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (point & 0x3F));
  }
}

// Reads the code point at `at` and moves `at` past it; returns a lone surrogate as itself.
uint32_t NextPoint(std::wstring_view text, size_t& at) {
  uint32_t unit = text[at++];
  if (unit >= 0xD800 && unit < 0xDC00 && at < text.size() && text[at] >= 0xDC00 && text[at] < 0xE000) {
    return 0x10000 + ((unit - 0xD800) << 10) + (static_cast<uint32_t>(text[at++]) - 0xDC00);
  }
  return unit;
}

bool IsSurrogate(uint32_t unit) {
  return unit >= 0xD800 && unit < 0xE000;
}

struct PredefinedKey {
  HKEY key;
  const char* name;
};

}  // namespace

std::string Quote(std::string_view text) {
  std::string out = "\"";
  for (char byte : text) {
    auto unit = static_cast<unsigned char>(byte);
    if (NeedsEscape(unit)) {
      AppendEscaped(out, unit);
    } else {
      out += byte;
    }
  }
  return Secret::Masked(out + "\"");
}

std::string Quote(std::wstring_view text) {
  std::string out = "\"";
  for (size_t at = 0; at < text.size();) {
    uint32_t point = NextPoint(text, at);
    if (NeedsEscape(point) || IsSurrogate(point)) {
      AppendEscaped(out, point);
    } else {
      AppendUtf8(out, point);
    }
  }
  return Secret::Masked(out + "\"");
}

std::string ToUtf8(std::wstring_view text) {
  std::string out;
  for (size_t at = 0; at < text.size();) {
    AppendUtf8(out, NextPoint(text, at));
  }
  return Secret::Masked(std::move(out));
}

std::wstring ToWide(std::string_view text) {
  std::wstring out;
  int size = static_cast<int>(text.size());
  int units = size == 0 ? 0 : MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
  out.resize(static_cast<size_t>(units));
  if (units > 0) {
    MultiByteToWideChar(CP_UTF8, 0, text.data(), size, out.data(), units);
  }
  return out;
}

std::string HexText(uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

std::string GuidText(const GUID& guid) {
  char text[48];
  std::snprintf(text, sizeof text, "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.Data1,
                guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3],
                guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]);
  return text;
}

std::string VariantText(const VARIANT& value) {
  switch (value.vt) {
    case VT_EMPTY:
      return "empty";
    case VT_NULL:
      return "null";
    case VT_BSTR:
      return value.bstrVal == nullptr ? "null" : Quote(std::wstring_view(value.bstrVal));
    case VT_I4:
      return std::to_string(value.lVal);
    case VT_BOOL:
      return value.boolVal == VARIANT_FALSE ? "false" : "true";
    default:
      return "variant of type " + std::to_string(value.vt);
  }
}

std::string VariableText(VariableArguments arguments) {
  std::string out;
  va_list list;
  va_copy(list, arguments.list);
  std::wstring_view format(arguments.format);
  for (size_t at = format.find(L'%'); at < format.size(); at = format.find(L'%', at + 1)) {
    at = format.find_first_not_of(L"0123456789", at + 1);
    wchar_t directive = at < format.size() ? format[at] : L'\0';
    if (directive == L'%') {
      continue;
    }
    out += out.empty() ? "" : ", ";
    if (directive == L's') {
      const wchar_t* text = va_arg(list, const wchar_t*);
      out += text == nullptr ? "null" : Quote(std::wstring_view(text));
    } else if (directive == L'd') {
      out += std::to_string(va_arg(list, int));
    } else if (directive == L'u') {
      out += std::to_string(va_arg(list, unsigned));
    } else {
      out += "...";
      break;
    }
  }
  va_end(list);
  return out;
}

std::string HandleText(const Ledger& ledger, uint64_t value) {
  static const PredefinedKey kKeys[] = {
      {HKEY_CLASSES_ROOT, "HKEY_CLASSES_ROOT"},     {HKEY_CURRENT_USER, "HKEY_CURRENT_USER"},
      {HKEY_LOCAL_MACHINE, "HKEY_LOCAL_MACHINE"},   {HKEY_USERS, "HKEY_USERS"},
      {HKEY_CURRENT_CONFIG, "HKEY_CURRENT_CONFIG"},
  };
  if (value == 0) {
    return "null";
  }
  if (value == ToWord(INVALID_HANDLE_VALUE)) {
    return "INVALID_HANDLE_VALUE";
  }
  for (const PredefinedKey& one : kKeys) {
    if (value == ToWord(one.key)) {
      return one.name;
    }
  }
  std::string name = ledger.NameOf(value);
  return name.empty() ? "*" : name;
}

std::string IntegerText(int64_t value, bool isSigned, size_t size, bool hex) {
  auto bits = static_cast<uint64_t>(value);
  if (size < sizeof bits) {
    bits &= (uint64_t{1} << size * 8) - 1;
  }
  constexpr int64_t kHighestHresult = -0x10000000;
  if (hex || (isSigned ? size == sizeof(LONG) && value <= kHighestHresult : bits >= 0x10000)) {
    return HexText(bits);
  }
  return isSigned ? std::to_string(value) : std::to_string(bits);
}

std::string PrintCounted(uint64_t data, int64_t count, size_t unit, bool text) {
  if (data == 0) {
    return "null";
  }
  if (unit == sizeof(wchar_t) && text) {
    auto* wide = reinterpret_cast<const wchar_t*>(data);
    return Quote(count < 0 ? std::wstring_view(wide) : std::wstring_view(wide, static_cast<size_t>(count)));
  }
  auto* bytes = reinterpret_cast<const char*>(data);
  return Quote(count < 0 ? std::string_view(bytes) : std::string_view(bytes, static_cast<size_t>(count)));
}

}  // namespace rig
