// The private profile files (".ini") in memory. Part of a world.
#pragma once

#include <windows.h>

#include <map>
#include <string>

#include "rig/rig.h"

namespace rig {

/// Private profile files; sections and keys in any letter case.
class ProfileFiles {
 public:
  /// The part of the world that belongs to this rig.
  explicit ProfileFiles(Rig& rig) : rig_(rig) {}
  /// Sends its functions here.
  void Install();

  /// Writes one value: 8-bit text, as it is in the file.
  void Set(const std::string& file, const std::string& section, const std::string& key,
           const std::string& value);

 private:
  /// A value, or null.
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
