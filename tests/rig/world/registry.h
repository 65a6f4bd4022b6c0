// The registry in memory. Part of the world.
#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rig/rig.h"

namespace rig {

/// The two views of "HKEY_LOCAL_MACHINE\SOFTWARE" on a 64-bit system. All other keys are the same in both.
enum class View {
  k64,  ///< The view of 64-bit programs.
  k32,  ///< The view of 32-bit programs.
};

/// A registry that starts empty. A key's name begins with its root ("HKEY_CURRENT_USER\Software\X"); letter
/// case does not matter. Texts are stored wide, as Windows stores them; the 8-bit functions convert them
/// with `codePage`.
class Registry {
 public:
  /// Creates the part of the world that belongs to this rig.
  explicit Registry(Rig& rig) : rig_(rig) {}
  /// Routes the functions of this part here.
  void Install();

  /// Creates a key and its parents.
  void Create(const std::string& path, View view = View::k64);
  /// Creates the key and sets a REG_SZ value (UTF-8) with its terminator.
  void SetText(const std::string& path, const std::string& name, std::string_view text,
               View view = View::k64);
  /// Creates the key and sets a REG_DWORD value.
  void SetNumber(const std::string& path, const std::string& name, DWORD number, View view = View::k64);
  /// Creates the key and sets a value of any type to exactly these bytes, as the 8-bit functions see them.
  void SetBytes(const std::string& path, const std::string& name, DWORD type, std::string_view bytes,
                View view = View::k64);
  /// Creates the key and removes the value of this name from it.
  void Unset(const std::string& path, const std::string& name, View view = View::k64);
  /// Makes opening the key return `error`.
  void Deny(const std::string& path, LSTATUS error = ERROR_ACCESS_DENIED, View view = View::k64);
  /// Makes setting a value of the key return `error`.
  void DenySetting(const std::string& path, LSTATUS error = ERROR_ACCESS_DENIED, View view = View::k64);

  /// True if the key exists.
  bool Exists(const std::string& path, View view = View::k64) const;
  /// Returns the bytes of a value; texts as UTF-8 with the terminators that they have. Nothing if the value
  /// is missing.
  std::optional<std::string> Bytes(const std::string& path, const std::string& name,
                                   View view = View::k64) const;
  /// Returns the type of a value; REG_NONE if it is missing.
  DWORD Type(const std::string& path, const std::string& name, View view = View::k64) const;

  /// The code page of the 8-bit functions.
  UINT codePage = 1252;

 private:
  /// One value of a key.
  struct Value {
    DWORD type = REG_NONE;
    std::string bytes;  // As the wide functions see them.
  };
  /// A key, or the errors that a test set for a missing one.
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

  /// Returns the name under which a key is stored: in capitals, with the 32-bit view marked.
  static std::string Canonical(const std::string& path, View view);
  /// Creates a key and its parents.
  Key& Make(const std::string& path, View view);
  /// Returns a value, or null.
  const Value* FindValue(const std::string& path, const std::string& name, View view) const;
  /// Converts a text's bytes to those that the 8-bit functions return.
  std::string ToAnsi(std::string_view wideBytes) const;
  /// Converts the bytes of 8-bit text to those of wide text.
  std::string FromAnsi(std::string_view bytes) const;
  /// True if there are keys below this one.
  bool HasSubkeys(const std::string& canonical) const;
  /// Returns the canonical name of a key below an open or predefined one; nothing if `parent` is neither.
  std::optional<std::string> PathOf(HKEY parent, const std::string& subkey, REGSAM access) const;
  /// Returns the result of opening or deleting the key at `path`: 0 if it exists and is not denied.
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
