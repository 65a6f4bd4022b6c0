#include "rig/world/registry.h"

#include <shlwapi.h>

#include <algorithm>
#include <cctype>
#include <cstring>

#include "rig/function.h"
#include "rig/guarded_heap.h"
#include "rig/print.h"

namespace rig {
namespace {

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
  return text;
}

bool StartsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

bool IsText(DWORD type) {
  return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

View ViewOf(REGSAM access) {
  return (access & KEY_WOW64_32KEY) != 0 ? View::k32 : View::k64;
}

std::string Text(const char* text) {
  return text == nullptr ? std::string() : std::string(text);
}
std::string Text(const wchar_t* text) {
  return text == nullptr ? std::string() : ToUtf8(text);
}

}  // namespace

std::string Registry::Canonical(const std::string& path, View view) {
  std::string upper = Upper(path);
  while (!upper.empty() && upper.back() == '\\') {
    upper.pop_back();
  }
  static const std::string kRedirected = "HKEY_LOCAL_MACHINE\\SOFTWARE";
  if (view == View::k32 && (upper == kRedirected || StartsWith(upper, kRedirected + "\\"))) {
    upper.insert(kRedirected.size(), "(32)");
  }
  return upper;
}

Registry::Key& Registry::Make(const std::string& path, View view) {
  std::string canonical = Canonical(path, view);
  for (size_t end = canonical.find('\\'); end != std::string::npos; end = canonical.find('\\', end + 1)) {
    keys_[canonical.substr(0, end)].exists = true;
  }
  Key& key = keys_[canonical];
  key.exists = true;
  return key;
}

void Registry::Create(const std::string& path, View view) {
  Make(path, view);
}

void Registry::SetText(const std::string& path, const std::string& name, std::string_view text, View view) {
  std::wstring wide = ToWide(text);
  Make(path, view).values[Upper(name)] = {
      REG_SZ, std::string(reinterpret_cast<const char*>(wide.c_str()), (wide.size() + 1) * sizeof(wchar_t))};
}

void Registry::SetNumber(const std::string& path, const std::string& name, DWORD number, View view) {
  Make(path, view).values[Upper(name)] = {REG_DWORD,
                                          std::string(reinterpret_cast<const char*>(&number), sizeof number)};
}

void Registry::SetBytes(const std::string& path, const std::string& name, DWORD type, std::string_view bytes,
                        View view) {
  Make(path, view).values[Upper(name)] = {type, IsText(type) ? FromAnsi(bytes) : std::string(bytes)};
}

void Registry::Unset(const std::string& path, const std::string& name, View view) {
  Make(path, view).values.erase(Upper(name));
}

void Registry::Deny(const std::string& path, LSTATUS error, View view) {
  keys_[Canonical(path, view)].openError = error;
}

void Registry::DenySetting(const std::string& path, LSTATUS error, View view) {
  keys_[Canonical(path, view)].setError = error;
}

bool Registry::Exists(const std::string& path, View view) const {
  auto found = keys_.find(Canonical(path, view));
  return found != keys_.end() && found->second.exists;
}

const Registry::Value* Registry::FindValue(const std::string& path, const std::string& name,
                                           View view) const {
  auto key = keys_.find(Canonical(path, view));
  if (key == keys_.end()) {
    return nullptr;
  }
  auto value = key->second.values.find(Upper(name));
  return value == key->second.values.end() ? nullptr : &value->second;
}

std::optional<std::string> Registry::Bytes(const std::string& path, const std::string& name,
                                           View view) const {
  const Value* value = FindValue(path, name, view);
  if (value == nullptr) {
    return std::nullopt;
  }
  if (!IsText(value->type)) {
    return value->bytes;
  }
  return ToUtf8(
      {reinterpret_cast<const wchar_t*>(value->bytes.data()), value->bytes.size() / sizeof(wchar_t)});
}

DWORD Registry::Type(const std::string& path, const std::string& name, View view) const {
  const Value* value = FindValue(path, name, view);
  return value == nullptr ? REG_NONE : value->type;
}

std::string Registry::ToAnsi(std::string_view wideBytes) const {
  int units = static_cast<int>(wideBytes.size() / sizeof(wchar_t));
  std::string out(wideBytes.size() * 2, '\0');
  int length = units == 0
                   ? 0
                   : WideCharToMultiByte(codePage, 0, reinterpret_cast<const wchar_t*>(wideBytes.data()),
                                         units, out.data(), static_cast<int>(out.size()), nullptr, nullptr);
  out.resize(static_cast<size_t>(length));
  return out;
}

std::string Registry::FromAnsi(std::string_view bytes) const {
  std::wstring wide(bytes.size(), L'\0');
  int size = static_cast<int>(bytes.size());
  int length = size == 0 ? 0 : MultiByteToWideChar(codePage, 0, bytes.data(), size, wide.data(), size);
  return std::string(reinterpret_cast<const char*>(wide.data()),
                     static_cast<size_t>(length) * sizeof(wchar_t));
}

bool Registry::HasSubkeys(const std::string& canonical) const {
  return std::any_of(keys_.begin(), keys_.end(), [&](const auto& key) {
    return key.second.exists && StartsWith(key.first, canonical + "\\");
  });
}

std::optional<std::string> Registry::PathOf(HKEY parent, const std::string& subkey, REGSAM access) const {
  auto opened = opened_.find(parent);
  std::string start = opened != opened_.end() ? opened->second.path : HandleText(rig_.ledger, ToWord(parent));
  if (opened == opened_.end() && !StartsWith(start, "HKEY_")) {
    return std::nullopt;
  }
  return Canonical(subkey.empty() ? start : start + "\\" + subkey, ViewOf(access));
}

LSTATUS Registry::Reach(const std::optional<std::string>& path) const {
  if (!path) {
    return ERROR_INVALID_HANDLE;
  }
  auto found = keys_.find(*path);
  if (found != keys_.end() && found->second.openError != ERROR_SUCCESS) {
    return found->second.openError;
  }
  if (found == keys_.end() || !found->second.exists) {
    return ERROR_FILE_NOT_FOUND;
  }
  return ERROR_SUCCESS;
}

LSTATUS Registry::Open(HKEY parent, const std::string& subkey, REGSAM access, HKEY* out) {
  auto path = PathOf(parent, subkey, access);
  LSTATUS status = Reach(path);
  if (status != ERROR_SUCCESS) {
    return status;
  }
  auto handle = reinterpret_cast<HKEY>(nextHandle_);
  nextHandle_ += 4;
  opened_[handle] = {*path, access};
  *out = handle;
  return ERROR_SUCCESS;
}

LSTATUS Registry::Query(HKEY key, const std::string& name, DWORD* type, BYTE* data, DWORD* size, bool wide) {
  auto opened = opened_.find(key);
  if (opened == opened_.end()) {
    return ERROR_INVALID_HANDLE;
  }
  if ((opened->second.access & KEY_QUERY_VALUE) == 0) {
    return ERROR_ACCESS_DENIED;
  }
  const Key& node = keys_[opened->second.path];
  auto value = node.values.find(Upper(name));
  if (value == node.values.end()) {
    return ERROR_FILE_NOT_FOUND;
  }
  std::string bytes = IsText(value->second.type) && !wide ? ToAnsi(value->second.bytes) : value->second.bytes;
  if (type != nullptr) {
    *type = value->second.type;
  }
  DWORD room = size == nullptr ? 0 : *size;
  if (size != nullptr) {
    *size = static_cast<DWORD>(bytes.size());
  }
  if (data == nullptr) {
    return ERROR_SUCCESS;
  }
  if (room < bytes.size()) {
    // Windows does not define what the buffer then contains, so the library must not look at it.
    std::memset(data, GuardedHeap::kRubbish, room);
    return ERROR_MORE_DATA;
  }
  std::memcpy(data, bytes.data(), bytes.size());
  return ERROR_SUCCESS;
}

LSTATUS Registry::Set(HKEY key, const std::string& name, DWORD type, std::string bytes) {
  auto opened = opened_.find(key);
  if (opened == opened_.end()) {
    return ERROR_INVALID_HANDLE;
  }
  if ((opened->second.access & KEY_SET_VALUE) == 0) {
    return ERROR_ACCESS_DENIED;
  }
  Key& node = keys_[opened->second.path];
  if (node.setError == ERROR_SUCCESS) {
    node.values[Upper(name)] = {type, std::move(bytes)};
  }
  return node.setError;
}

LSTATUS Registry::Delete(HKEY parent, const std::string& subkey, bool tree) {
  auto path = PathOf(parent, subkey, 0);
  LSTATUS status = Reach(path);
  if (status != ERROR_SUCCESS) {
    return status;
  }
  if (!tree && HasSubkeys(*path)) {
    return ERROR_ACCESS_DENIED;
  }
  for (auto at = keys_.begin(); at != keys_.end();) {
    at = at->first == *path || StartsWith(at->first, *path + "\\") ? keys_.erase(at) : std::next(at);
  }
  return ERROR_SUCCESS;
}

LSTATUS Registry::DeleteValue(HKEY key, const std::string& name) {
  auto opened = opened_.find(key);
  if (opened == opened_.end()) {
    return ERROR_INVALID_HANDLE;
  }
  if ((opened->second.access & KEY_SET_VALUE) == 0) {
    return ERROR_ACCESS_DENIED;
  }
  return keys_[opened->second.path].values.erase(Upper(name)) == 0 ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS;
}

void Registry::Install() {
  rig_.On<::RegOpenKeyExA>([this](HKEY parent, const char* subkey, DWORD, REGSAM access, HKEY* out) {
    return Open(parent, Text(subkey), access, out);
  });
  rig_.On<::RegOpenKeyExW>([this](HKEY parent, const wchar_t* subkey, DWORD, REGSAM access, HKEY* out) {
    return Open(parent, Text(subkey), access, out);
  });
  rig_.On<::RegQueryValueExA>(
      [this](HKEY key, const char* name, DWORD*, DWORD* type, BYTE* data, DWORD* size) {
        return Query(key, Text(name), type, data, size, false);
      });
  rig_.On<::RegQueryValueExW>([this](HKEY key, const wchar_t* name, DWORD*, DWORD* type, BYTE* data,
                                     DWORD* size) { return Query(key, Text(name), type, data, size, true); });
  rig_.On<::RegSetValueExA>(
      [this](HKEY key, const char* name, DWORD, DWORD type, const BYTE* data, DWORD size) {
        std::string bytes(reinterpret_cast<const char*>(data), size);
        return Set(key, Text(name), type, IsText(type) ? FromAnsi(bytes) : bytes);
      });
  rig_.On<::RegSetValueExW>(
      [this](HKEY key, const wchar_t* name, DWORD, DWORD type, const BYTE* data, DWORD size) {
        return Set(key, Text(name), type, std::string(reinterpret_cast<const char*>(data), size));
      });
  rig_.On<::RegDeleteKeyA>(
      [this](HKEY parent, const char* subkey) { return Delete(parent, Text(subkey), false); });
  rig_.On<::RegDeleteKeyW>(
      [this](HKEY parent, const wchar_t* subkey) { return Delete(parent, Text(subkey), false); });
  rig_.On<::SHDeleteKeyA>(
      [this](HKEY parent, const char* subkey) { return Delete(parent, Text(subkey), true); });
  rig_.On<::RegDeleteValueA>([this](HKEY key, const char* name) { return DeleteValue(key, Text(name)); });
  rig_.On<::RegCloseKey>(
      [this](HKEY key) -> LSTATUS { return opened_.erase(key) == 0 ? ERROR_INVALID_HANDLE : ERROR_SUCCESS; });
}

}  // namespace rig
