// The part of a world that belongs to the shell: known folders and command lines.
#pragma once

#include <windows.h>

#include <cstring>
#include <map>
#include <string>

#include "rig/rig.h"

namespace rig {

/// The known folders, by either way of asking, and CommandLineToArgvW, whose list is the library's to free.
/// The folders are those of a plain installation on drive C; nothing of it need exist on the disk.
class Shell {
 public:
  /// The part of the world that belongs to this rig.
  explicit Shell(Rig& rig) : rig_(rig) {}
  /// Sends its functions here.
  void Install();

  /// SHGetFolderPathA and SHGetFolderPathW give this folder for a CSIDL. An empty text is given out as it is,
  /// with success.
  void Set(int csidl, std::wstring path) { folders_[csidl] = {S_OK, std::move(path)}; }
  /// SHGetKnownFolderPath gives this folder for a KNOWNFOLDERID.
  void Set(const GUID& id, std::wstring path) { known_[id] = {S_OK, std::move(path)}; }
  /// SHGetFolderPathA and SHGetFolderPathW fail with `result` for a CSIDL.
  void Fail(int csidl, HRESULT result = E_FAIL) { folders_[csidl] = {result, {}}; }
  /// SHGetKnownFolderPath fails with `result` for a KNOWNFOLDERID.
  void Fail(const GUID& id, HRESULT result = E_FAIL) { known_[id] = {result, {}}; }

 private:
  /// What a question for a folder gets.
  struct Folder {
    HRESULT result;
    std::wstring path;
  };
  /// An order of identifiers.
  struct IdOrder {
    /// Whether `a` comes first.
    bool operator()(const GUID& a, const GUID& b) const { return std::memcmp(&a, &b, sizeof a) < 0; }
  };
  /// Answers SHGetFolderPathW.
  HRESULT GiveFolder(int csidl, wchar_t* path);
  /// Answers SHGetKnownFolderPath.
  HRESULT GiveKnownFolder(const GUID& id, wchar_t** path);

  Rig& rig_;
  std::map<int, Folder> folders_ = DefaultFolders();
  std::map<GUID, Folder, IdOrder> known_ = DefaultKnownFolders();

  /// The folders of a plain installation.
  static std::map<int, Folder> DefaultFolders();
  /// The same by identifier.
  static std::map<GUID, Folder, IdOrder> DefaultKnownFolders();
};

}  // namespace rig
