// The registry in memory. Part of a world.
#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rig/rig.h"

namespace rig {

/// The two views of "HKEY_LOCAL_MACHINE\SOFTWARE" on a 64-bit system. Everything else is one and the same in
/// both.
enum class View {
  k64,  ///< What 64-bit programs see.
  k32,  ///< What 32-bit programs see.
};

/// A registry that starts empty. Keys are named from their root on ("HKEY_CURRENT_USER\Software\X"), in any
/// letter case. Texts are kept wide, as Windows keeps them; the 8-bit functions see them through `codePage`.
class Registry {
 public:
  /// The part of the world that belongs to this rig.
  explicit Registry(Rig& rig) : rig_(rig) {}
  /// Sends its functions here.
  void Install();

  /// Makes a key and those above it.
  void Create(const std::string& path, View view = View::k64);
  /// Makes the key and sets a REG_SZ value (UTF-8) with its terminator.
  void SetText(const std::string& path, const std::string& name, std::string_view text,
               View view = View::k64);
  /// Makes the key and sets a REG_DWORD value.
  void SetNumber(const std::string& path, const std::string& name, DWORD number, View view = View::k64);
  /// Makes the key and sets a value of any type to exactly these bytes, as the 8-bit functions see them.
  void SetBytes(const std::string& path, const std::string& name, DWORD type, std::string_view bytes,
                View view = View::k64);
  /// Makes the key and sees to it that it has no value of this name.
  void Unset(const std::string& path, const std::string& name, View view = View::k64);
  /// Opening the key returns `error`.
  void Deny(const std::string& path, LSTATUS error = ERROR_ACCESS_DENIED, View view = View::k64);
  /// Setting a value of the key returns `error`.
  void DenySetting(const std::string& path, LSTATUS error = ERROR_ACCESS_DENIED, View view = View::k64);

  /// Whether the key is there.
  bool Exists(const std::string& path, View view = View::k64) const;
  /// The bytes of a value, texts as UTF-8 with what terminators they have; nothing when the value is missing.
  std::optional<std::string> Bytes(const std::string& path, const std::string& name,
                                   View view = View::k64) const;
  /// The type of a value; REG_NONE when it is missing.
  DWORD Type(const std::string& path, const std::string& name, View view = View::k64) const;

  /// The code page of the 8-bit functions.
  UINT codePage = 1252;

 private:
  /// One value of a key.
  struct Value {
    DWORD type = REG_NONE;
    std::string bytes;  // As the wide functions see them.
  };
  /// One key, or what a test said about one that is not there.
  struct Key {
    std::map<std::string, Value> values;
    LSTATUS openError = ERROR_SUCCESS;
    LSTATUS setError = ERROR_SUCCESS;
    bool exists = false;
  };
  /// A key that the library has open.
  struct Opened {
    std::string path;
    REGSAM access;
  };

  /// The name under which a key is kept: capitals, the 32-bit view marked.
  static std::string Canonical(const std::string& path, View view);
  /// Makes a key and those above it.
  Key& Make(const std::string& path, View view);
  /// A value, or null.
  const Value* FindValue(const std::string& path, const std::string& name, View view) const;
  /// A text's bytes as the 8-bit functions give them.
  std::string ToAnsi(std::string_view wideBytes) const;
  /// The other way.
  std::string FromAnsi(std::string_view bytes) const;
  /// Whether there are keys below this one.
  bool HasSubkeys(const std::string& canonical) const;
  /// The canonical name of a key below an open or predefined one; nothing when that one is neither.
  std::optional<std::string> PathOf(HKEY parent, const std::string& subkey, REGSAM access) const;
  /// What opening or deleting the key at `path` gives: 0 when it is there and not denied.
  LSTATUS Reach(const std::optional<std::string>& path) const;

  /// Answers RegOpenKeyEx.
  LSTATUS Open(HKEY parent, const std::string& subkey, REGSAM access, HKEY* out);
  /// Answers RegQueryValueEx.
  LSTATUS Query(HKEY key, const std::string& name, DWORD* type, BYTE* data, DWORD* size, bool wide);
  /// Answers RegSetValueEx.
  LSTATUS Set(HKEY key, const std::string& name, DWORD type, std::string bytes);
  /// Answers RegDeleteKey and, with `tree`, SHDeleteKey.
  LSTATUS Delete(HKEY parent, const std::string& subkey, bool tree);
  /// Answers RegDeleteValue.
  LSTATUS DeleteValue(HKEY key, const std::string& name);

  Rig& rig_;
  std::map<std::string, Key> keys_;
  std::map<HKEY, Opened> opened_;
  uintptr_t nextHandle_ = 0x4B0004;
};

}  // namespace rig
