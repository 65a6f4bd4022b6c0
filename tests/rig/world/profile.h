// Private profile files (".ini") in memory. Part of the world.
#pragma once

#include <windows.h>

#include <map>
#include <string>

#include "rig/rig.h"

namespace rig {

/// Private profile files; the letter case of sections and keys does not matter.
class ProfileFiles {
 public:
  /// Creates the part of the world that belongs to this rig.
  explicit ProfileFiles(Rig& rig) : rig_(rig) {}
  /// Routes the functions of this part here.
  void Install();

  /// Sets one value to 8-bit text, as it would be in the file.
  void Set(const std::string& file, const std::string& section, const std::string& key,
           const std::string& value);

 private:
  /// Returns a value, or null.
  const std::string* Find(const char* file, const char* section, const char* key) const;
  /// Answers GetPrivateProfileIntA.
  UINT ReadNumber(const char* file, const char* section, const char* key, INT missing) const;
  /// Answers GetPrivateProfileStringA.
  DWORD ReadText(const char* file, const char* section, const char* key, const char* missing, char* buffer,
                 DWORD size) const;

  Rig& rig_;
  std::map<std::string, std::string> values_;
};

}  // namespace rig
