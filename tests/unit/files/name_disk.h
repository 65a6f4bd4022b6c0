// A disk in memory that treats names as Windows does: an entry is also found by its short (8.3) name, dots
// and blanks at the end of a path are dropped, and case does not matter unless a folder is case-sensitive.
// Used by the tests of the copy/move engine with names that lead to other entries.
#pragma once

#include <windows.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "rig/rig.h"

namespace name_disk {

/// A file or folder.
struct Node {
  std::wstring name;
  /// The short name, or empty if the name itself is short.
  std::wstring alias;
  bool isFolder = false;
  /// For a link to a folder: the path that it leads to; otherwise empty.
  std::wstring link;
  /// For a folder: true if names that differ only in case are different entries.
  bool mindsCase = false;
  std::string contents;
  /// The entries in the order of a listing.
  std::vector<std::unique_ptr<Node>> entries;
};

/// True if two names are equal without regard to case.
inline bool IsSame(const std::wstring& a, const std::wstring& b) {
  return CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
}

/// The disk, whose root is "Q:". Paths are absolute.
class Disk {
 public:
  Disk() { root_.isFolder = true; }

  /// Names for which copying to, deleting and creating a folder fails, as if they were in use.
  std::vector<std::wstring> locked;

  /// Makes an entry with exactly this name, as a system without the rules of Windows does. The folder `path`
  /// must exist. `contents` is null for a folder. Returns the entry, or null if the name is taken.
  Node* Plant(const std::wstring& path, const std::wstring& name, const std::string* contents) {
    Node* folder = Exactly(path);
    if (Taken(*folder, name, nullptr) != nullptr) return nullptr;
    auto node = std::make_unique<Node>();
    node->name = name;
    node->isFolder = contents == nullptr;
    if (contents != nullptr) node->contents = *contents;
    return Add(*folder, std::move(node));
  }

  /// Makes a link to a folder in the folder `path`, as Plant does.
  Node* PlantLink(const std::wstring& path, const std::wstring& name, const std::wstring& target) {
    Node* link = Plant(path, name, nullptr);
    if (link != nullptr) link->link = target;
    return link;
  }

  /// Returns the entry at a path of exact names; null if there is none.
  Node* Exactly(const std::wstring& path) {
    Node* node = &root_;
    for (const std::wstring& name : Split(path)) {
      Node* next = nullptr;
      for (auto& entry : node->entries) {
        if (entry->name == name) next = entry.get();
      }
      if (next == nullptr) return nullptr;
      node = next;
    }
    return node;
  }

  /// Returns the contents of the disk: paths of exact names with contents. A folder has the contents
  /// "<folder>", a link "<link>".
  std::map<std::wstring, std::string> Tree() const {
    std::map<std::wstring, std::string> tree;
    AddTree(root_, L"", tree);
    return tree;
  }

  /// Returns the entry that Windows finds for a path, for a link the link itself; null if there is none.
  Node* Find(const std::wstring& path) {
    Node* node = &root_;
    for (const std::wstring& name : Split(Normal(path))) {
      node = Through(node);
      node = node != nullptr && node->isFolder ? Taken(*node, name, nullptr) : nullptr;
      if (node == nullptr) return nullptr;
    }
    return node;
  }

  /// Follows a node: returns the folder that a link leads to, or the node itself.
  Node* Through(Node* node) { return node == nullptr || node->link.empty() ? node : Find(node->link); }

  /// Does what MoveFileW does.
  DWORD Move(const std::wstring& from, const std::wstring& to) {
    Node* source = Find(from);
    if (source == nullptr || source == &root_) return ERROR_FILE_NOT_FOUND;
    Node* folder = FolderOf(to);
    if (folder == nullptr) return ERROR_PATH_NOT_FOUND;
    std::wstring name = Split(Normal(to)).back();
    if (Taken(*folder, name, source) != nullptr) return ERROR_ALREADY_EXISTS;
    if (Contains(*source, folder)) return ERROR_SHARING_VIOLATION;
    std::unique_ptr<Node> moved = Take(source);
    moved->name = name;
    Add(*folder, std::move(moved));
    return 0;
  }

  /// Does what CopyFileW does when it must not overwrite.
  DWORD Copy(const std::wstring& from, const std::wstring& to) {
    Node* source = Find(from);
    if (source == nullptr) return ERROR_FILE_NOT_FOUND;
    Node* folder = FolderOf(to);
    if (source->isFolder || folder == nullptr) return ERROR_PATH_NOT_FOUND;
    std::wstring name = Split(Normal(to)).back();
    if (Taken(*folder, name, nullptr) != nullptr) return ERROR_FILE_EXISTS;
    if (IsLocked(name)) return ERROR_SHARING_VIOLATION;
    auto copy = std::make_unique<Node>();
    copy->name = name;
    copy->contents = source->contents;
    Add(*folder, std::move(copy));
    return 0;
  }

  /// Does what CreateDirectoryW does.
  DWORD MakeFolder(const std::wstring& path) {
    Node* folder = FolderOf(path);
    if (folder == nullptr) return ERROR_PATH_NOT_FOUND;
    std::wstring name = Split(Normal(path)).back();
    if (Taken(*folder, name, nullptr) != nullptr) return ERROR_ALREADY_EXISTS;
    if (IsLocked(name)) return ERROR_SHARING_VIOLATION;
    auto made = std::make_unique<Node>();
    made->name = name;
    made->isFolder = true;
    // New folders inherit case sensitivity from their parent.
    made->mindsCase = folder->mindsCase;
    Add(*folder, std::move(made));
    return 0;
  }

  /// Does what DeleteFileW does, or RemoveDirectoryW if `isFolder`.
  DWORD Delete(const std::wstring& path, bool isFolder) {
    Node* node = Find(path);
    if (node == nullptr) return ERROR_FILE_NOT_FOUND;
    if (node->isFolder != isFolder) return ERROR_ACCESS_DENIED;
    if (!node->entries.empty()) return ERROR_DIR_NOT_EMPTY;
    if (IsLocked(node->name)) return ERROR_SHARING_VIOLATION;
    Take(node);
    return 0;
  }

  /// Returns the names of the folder's entries in the order of a listing.
  static std::vector<std::wstring> Names(const Node& folder) {
    std::vector<std::wstring> names;
    for (const auto& entry : folder.entries) names.push_back(entry->name);
    return names;
  }

  /// Answers the file functions for the rig. Paths outside this disk are not found.
  void Install(rig::Rig& rig) {
    auto done = [](DWORD error) {
      if (error != 0) SetLastError(error);
      return error == 0 ? TRUE : FALSE;
    };
    rig.On<::MoveFileW>(
        [this, done](const wchar_t* from, const wchar_t* to) { return done(Move(from, to)); });
    rig.On<::CopyFileW>(
        [this, done](const wchar_t* from, const wchar_t* to, BOOL) { return done(Copy(from, to)); });
    rig.On<::CreateDirectoryW>(
        [this, done](const wchar_t* path, SECURITY_ATTRIBUTES*) { return done(MakeFolder(path)); });
    rig.On<::DeleteFileW>([this, done](const wchar_t* path) { return done(Delete(path, false)); });
    rig.On<::RemoveDirectoryW>([this, done](const wchar_t* path) { return done(Delete(path, true)); });
    rig.On<::FindFirstFileW>(
        [this](const wchar_t* path, WIN32_FIND_DATAW* found) { return StartSearch(path, found); });
    rig.On<::FindNextFileW>([this, done](HANDLE search, WIN32_FIND_DATAW* found) {
      std::vector<WIN32_FIND_DATAW>& left = searches_[search];
      if (left.empty()) return done(ERROR_NO_MORE_FILES);
      *found = left.front();
      left.erase(left.begin());
      return TRUE;
    });
    rig.On<::FindClose>([this](HANDLE search) {
      searches_.erase(search);
      return TRUE;
    });
  }

 private:
  static std::vector<std::wstring> Split(const std::wstring& path) {
    std::vector<std::wstring> names;
    size_t at = path.find(L'\\');
    while (at != std::wstring::npos) {
      size_t next = path.find(L'\\', at + 1);
      std::wstring name = path.substr(at + 1, next == std::wstring::npos ? next : next - at - 1);
      if (!name.empty()) names.push_back(name);
      at = next;
    }
    return names;
  }

  static std::wstring Normal(std::wstring path) {
    while (path.ends_with(L'.') || path.ends_with(L' ')) path.pop_back();
    return path;
  }

  // Returns the entry that a name leads to, other than `except`: first by the exact name, then without regard
  // to case (unless the folder is case-sensitive), then by the short name.
  static Node* Taken(Node& folder, const std::wstring& name, const Node* except) {
    for (auto& entry : folder.entries) {
      if (entry.get() != except && entry->name == name) return entry.get();
    }
    for (auto& entry : folder.entries) {
      if (entry.get() != except && !folder.mindsCase && IsSame(entry->name, name)) return entry.get();
    }
    for (auto& entry : folder.entries) {
      if (entry.get() != except && !entry->alias.empty() && IsSame(entry->alias, name)) return entry.get();
    }
    return nullptr;
  }

  Node* FolderOf(const std::wstring& path) {
    Node* folder = Through(Find(path.substr(0, path.rfind(L'\\'))));
    return folder != nullptr && folder->isFolder ? folder : nullptr;
  }

  static bool Contains(const Node& node, const Node* other) {
    if (&node == other) return true;
    return std::any_of(node.entries.begin(), node.entries.end(),
                       [&](const auto& entry) { return Contains(*entry, other); });
  }

  Node* ParentOf(Node& folder, const Node* node) {
    for (auto& entry : folder.entries) {
      if (entry.get() == node) return &folder;
      if (Node* parent = ParentOf(*entry, node)) return parent;
    }
    return nullptr;
  }

  std::unique_ptr<Node> Take(Node* node) {
    Node* parent = ParentOf(root_, node);
    auto at = std::find_if(parent->entries.begin(), parent->entries.end(),
                           [&](const auto& entry) { return entry.get() == node; });
    std::unique_ptr<Node> taken = std::move(*at);
    parent->entries.erase(at);
    return taken;
  }

  // Adds a node in its place of the listing, with an unused short name.
  static Node* Add(Node& folder, std::unique_ptr<Node> node) {
    node->alias.clear();
    if (!IsShort(node->name)) {
      for (int number = 1; node->alias.empty(); ++number) {
        std::wstring alias = MakeAlias(node->name, number);
        if (Taken(folder, alias, nullptr) == nullptr) node->alias = alias;
      }
    }
    auto before = [](const std::unique_ptr<Node>& a, const std::unique_ptr<Node>& b) {
      int order = CompareStringOrdinal(a->name.c_str(), -1, b->name.c_str(), -1, TRUE);
      return order == CSTR_EQUAL ? a->name < b->name : order == CSTR_LESS_THAN;
    };
    Node* placed = node.get();
    folder.entries.insert(std::upper_bound(folder.entries.begin(), folder.entries.end(), node, before),
                          std::move(node));
    return placed;
  }

  static bool IsShort(const std::wstring& name) {
    size_t dot = name.find(L'.');
    size_t base = dot == std::wstring::npos ? name.size() : dot;
    if (name.find(L' ') != std::wstring::npos || base == 0 || base > 8) return false;
    return dot == std::wstring::npos || (name.size() > dot + 1 && name.size() <= dot + 4);
  }

  static std::wstring MakeAlias(const std::wstring& name, int number) {
    auto plain = [](const std::wstring& text, size_t most) {
      std::wstring kept;
      for (wchar_t unit : text) {
        if (unit != L' ' && unit != L'.' && kept.size() < most) kept += static_cast<wchar_t>(towupper(unit));
      }
      return kept;
    };
    size_t dot = name.rfind(L'.');
    std::wstring extension = dot == std::wstring::npos ? L"" : plain(name.substr(dot + 1), 3);
    std::wstring alias = plain(name.substr(0, dot), 6) + L"~" + std::to_wstring(number);
    return extension.empty() ? alias : alias + L"." + extension;
  }

  bool IsLocked(const std::wstring& name) const {
    return std::find(locked.begin(), locked.end(), name) != locked.end();
  }

  static WIN32_FIND_DATAW Answer(const Node& node, const std::wstring& name) {
    WIN32_FIND_DATAW found = {};
    found.dwFileAttributes = node.isFolder ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
    if (!node.link.empty()) {
      found.dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
      found.dwReserved0 = IO_REPARSE_TAG_MOUNT_POINT;
    }
    wcscpy(found.cFileName, name.c_str());
    wcscpy(found.cAlternateFileName, node.alias.c_str());
    return found;
  }

  HANDLE StartSearch(const std::wstring& path, WIN32_FIND_DATAW* found) {
    std::vector<WIN32_FIND_DATAW> answers;
    size_t leaf = path.rfind(L'\\') + 1;
    if (path.find_first_of(L"*?", leaf) != std::wstring::npos) {
      Node* folder = Through(Find(path.substr(0, leaf - 1)));
      if (folder == nullptr || !folder->isFolder) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
      }
      // The patterns of the tests match everything.
      answers = {Answer(*folder, L"."), Answer(*folder, L"..")};
      for (const auto& entry : folder->entries) answers.push_back(Answer(*entry, entry->name));
    } else if (Node* node = Find(path)) {
      answers = {Answer(*node, node->name)};
    } else {
      SetLastError(ERROR_FILE_NOT_FOUND);
      return INVALID_HANDLE_VALUE;
    }
    *found = answers.front();
    answers.erase(answers.begin());
    auto search = reinterpret_cast<HANDLE>(0x4710 + 8 * ++lastSearch_);
    searches_[search] = answers;
    return search;
  }

  static void AddTree(const Node& folder, const std::wstring& below,
                      std::map<std::wstring, std::string>& tree) {
    for (const auto& entry : folder.entries) {
      tree[below + entry->name] = !entry->link.empty() ? "<link>"
                                  : entry->isFolder    ? "<folder>"
                                                       : entry->contents;
      AddTree(*entry, below + entry->name + L"\\", tree);
    }
  }

  Node root_;
  std::map<HANDLE, std::vector<WIN32_FIND_DATAW>> searches_;
  uintptr_t lastSearch_ = 0;
};

}  // namespace name_disk
