// The shell: known folders and command lines. Part of the world.
#pragma once

#include <windows.h>

#include <cstring>
#include <map>
#include <string>

#include "rig/rig.h"

namespace rig {

/// The known folders, through both APIs, and CommandLineToArgvW, whose list the library must free. The
/// folders are those of a plain installation on drive C; they need not exist on the disk.
class Shell {
 public:
  /// Creates the part of the world that belongs to this rig.
  explicit Shell(Rig& rig) : rig_(rig) {}
  /// Routes the functions of this part here.
  void Install();

  /// Makes SHGetFolderPathA and SHGetFolderPathW return this folder for a CSIDL. An empty path is returned
  /// as such, with success.
  void Set(int csidl, std::wstring path) { folders_[csidl] = {S_OK, std::move(path)}; }
  /// Makes SHGetKnownFolderPath return this folder for a KNOWNFOLDERID.
  void Set(const GUID& id, std::wstring path) { known_[id] = {S_OK, std::move(path)}; }
  /// Makes SHGetFolderPathA and SHGetFolderPathW fail with `result` for a CSIDL.
  void Fail(int csidl, HRESULT result = E_FAIL) { folders_[csidl] = {result, {}}; }
  /// Makes SHGetKnownFolderPath fail with `result` for a KNOWNFOLDERID.
  void Fail(const GUID& id, HRESULT result = E_FAIL) { known_[id] = {result, {}}; }

 private:
  /// The result of a query for a folder.
  struct Folder {
    HRESULT result;
    std::wstring path;
  };
  /// Orders identifiers.
  struct IdOrder {
    /// True if `a` comes first.
    bool operator()(const GUID& a, const GUID& b) const { return std::memcmp(&a, &b, sizeof a) < 0; }
  };
  /// Answers SHGetFolderPathW.
  HRESULT GiveFolder(int csidl, wchar_t* path);
  /// Answers SHGetKnownFolderPath.
  HRESULT GiveKnownFolder(const GUID& id, wchar_t** path);

  Rig& rig_;
  std::map<int, Folder> folders_ = DefaultFolders();
  std::map<GUID, Folder, IdOrder> known_ = DefaultKnownFolders();

  /// Returns the folders of a plain installation by CSIDL.
  static std::map<int, Folder> DefaultFolders();
  /// Returns the same folders by KNOWNFOLDERID.
  static std::map<GUID, Folder, IdOrder> DefaultKnownFolders();
};

}  // namespace rig
