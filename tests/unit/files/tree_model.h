// The copy/move engine as a simple program over several kinds of files. Used by the engine's model tests.
#pragma once

#include <windows.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tree_model {

namespace fs = std::filesystem;

/// What the model knows of the world besides the files.
struct World {
  std::wstring stamp;  ///< The end of a name that is renamed aside.
};

/// A file of this name cannot be copied or deleted, nor a folder of this name created, as if it were in use.
inline bool IsRefused(const std::wstring& path) {
  return fs::path(path).filename() == L"locked";
}

/// The result of a look-up.
struct Found {
  std::wstring name;   ///< The entry's own name.
  std::wstring alias;  ///< Its short name, or empty.
  bool isFolder;
  bool isLink = false;
};

/// The model's files in std::filesystem. No name leads to another entry.
class RealFiles {
 public:
  /// Returns the names in a folder, in the order in which the system lists them.
  static std::vector<std::wstring> Entries(const std::wstring& folder) {
    std::vector<std::wstring> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error))
      names.push_back(entry.path().filename().wstring());
    return names;
  }
  /// Looks up a path.
  static std::optional<Found> Find(const std::wstring& path) {
    std::error_code error;
    if (!fs::exists(path, error)) return std::nullopt;
    return Found{fs::path(path).filename().wstring(), L"", fs::is_directory(path, error)};
  }
  static bool MakeFolder(const std::wstring& path) {
    std::error_code error;
    return !IsRefused(path) && fs::create_directory(path, error) && !error;
  }
  static bool Rename(const std::wstring& from, const std::wstring& to) {
    std::error_code error;
    if (fs::exists(to, error)) return false;
    fs::rename(from, to, error);
    return !error;
  }
  static bool Copy(const std::wstring& from, const std::wstring& to) {
    std::error_code error;
    return !IsRefused(to) && fs::copy_file(from, to, error) && !error;
  }
  static bool DeleteFile(const std::wstring& path) {
    std::error_code error;
    return !IsRefused(path) && fs::remove(path, error) && !error;
  }
  static bool RemoveFolder(const std::wstring& path) {
    std::error_code error;
    return fs::remove(path, error) && !error;
  }
};

/// The engine, over files of the type `Files`.
template <class Files>
class Engine {
 public:
  explicit Engine(World world, Files files = Files()) : world_(std::move(world)), files_(files) {}

  /// Runs over the elements after the first one.
  int Run(const std::vector<std::wstring>& elements) {
    unsigned options = 0;
    for (size_t at = 0; at + 1 < elements.size(); ++at) {
      if (elements[at][0] == L'-') {
        for (size_t letter = 1; letter < elements[at].size(); ++letter) Apply(elements[at][letter], options);
        continue;
      }
      int status = Source(elements[at], elements.back(), options);
      if (status != 0 && (options & kIgnore) == 0) return status;
    }
    return 0;
  }

 private:
  enum : unsigned {
    kMove = 1,
    kOverwrite = 2,
    kAside = 4,
    kIgnore = 8,
    kRecurse = 16,
    kCreate = 32,
    kKeepLinks = 64
  };

  static void Apply(wchar_t letter, unsigned& options) {
    switch (letter) {
      case L'm':
        options |= kMove;
        break;
      case L'c':
        options &= ~kMove;
        break;
      case L'o':
        options |= kOverwrite;
        break;
      case L'k':
        options &= ~kOverwrite;
        break;
      case L'b':
        options |= kAside;
        break;
      case L'i':
        options |= kIgnore;
        break;
      case L'e':
        options &= ~kIgnore;
        break;
      case L'r':
        options |= kRecurse;
        break;
      case L'f':
        options &= ~kRecurse;
        break;
      case L'n':
        options |= kCreate;
        break;
      case L'u':
        options &= ~kCreate;
        break;
      case L'l':
        options |= kKeepLinks;
        break;
      case L'g':
        options &= ~kKeepLinks;
        break;
      case L'z':
        options = 0;
        break;
      default:
        break;
    }
  }

  static std::wstring Trimmed(std::wstring name) {
    while (name.ends_with(L'.')) name.pop_back();
    if (name.ends_with(L'\\')) name.pop_back();
    return name;
  }
  static std::wstring FolderOf(const std::wstring& name) { return name.substr(0, name.rfind(L'\\') + 1); }
  bool IsFolder(const std::wstring& path) {
    std::optional<Found> found = files_.Find(path);
    return found && found->isFolder;
  }

  static bool IsSame(const std::wstring& a, const std::wstring& b) {
    return CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
  }
  /// True if Windows drops the end of the name.
  static bool IsCut(const std::wstring& name) { return name.ends_with(L'.') || name.ends_with(L' '); }

  // Deletes from the inside, in the order of the listing, up to the first failure.
  bool Delete(const std::wstring& name, unsigned options) {
    std::optional<Found> found = files_.Find(name);
    if (!found || !found->isFolder) return files_.DeleteFile(name);
    if (found->isLink && (options & kKeepLinks) != 0) return files_.RemoveFolder(name);
    for (const std::wstring& entry : files_.Entries(name)) {
      if (IsCut(entry) || !Delete(name + L"\\" + entry, options)) return false;
    }
    return files_.RemoveFolder(name);
  }

  // The last name of the pattern has at most one asterisk; names have the plain 8.3 form.
  static bool Matches(const std::wstring& name, const std::wstring& pattern) {
    if (pattern == L"*" || pattern == L"*.*") return true;
    size_t star = pattern.find(L'*');
    if (star == std::wstring::npos) {
      if (name.size() != pattern.size()) return false;
      for (size_t at = 0; at < name.size(); ++at) {
        if (pattern[at] != L'?' && pattern[at] != name[at]) return false;
      }
      return true;
    }
    return name.starts_with(pattern.substr(0, star)) && name.ends_with(pattern.substr(star + 1)) &&
           name.size() >= pattern.size() - 1;
  }

  int Source(const std::wstring& source, const std::wstring& target, unsigned options) {
    auto create = [&] {
      if ((options & kCreate) != 0) files_.MakeFolder(Trimmed(target));
    };
    if (source.find_first_of(L"*?") == std::wstring::npos) {
      create();
      return Item(Trimmed(source), Trimmed(target), L"", options);
    }
    std::wstring folder = FolderOf(source);
    std::wstring pattern = source.substr(folder.size());
    if (!IsFolder(folder)) return -43;
    std::vector<std::wstring> matches;
    for (const std::wstring& name : files_.Entries(folder)) {
      if (Matches(name, pattern)) matches.push_back(name);
    }
    // "." and ".." of a folder match too, and cause the target to be created.
    if (matches.empty() && !Matches(L".", pattern) && !Matches(L"..", pattern)) return 0;
    create();
    for (const std::wstring& name : matches) {
      int status = Item(folder + name, FolderOf(target) + name, name, options);
      if (status != 0 && (options & kIgnore) == 0) return status;
    }
    return 0;
  }

  // `entry` is the name in a listing; empty for an item that the command line names.
  int Item(const std::wstring& source, const std::wstring& target, const std::wstring& entry,
           unsigned options) {
    // An entry that its name does not lead to is not touched, and no other entry is touched instead.
    const bool isReached = !IsCut(entry);
    auto find = [&](const std::wstring& path) {
      std::optional<Found> found = files_.Find(path);
      bool isOther = found && !entry.empty() && !found->name.empty() && !IsSame(found->name, entry) &&
                     (!isReached || IsSame(found->alias, entry));
      return isOther ? std::nullopt : found;
    };
    bool merges = false;
    if (std::optional<Found> there = find(target)) {
      if ((options & kOverwrite) == 0) {
        if ((options & kMove) != 0) return -15;
        if (!there->isFolder || (options & kRecurse) == 0) return 0;
        if (there->isLink && (options & kKeepLinks) != 0) return -7;
        merges = true;
      } else if ((options & kAside) != 0) {
        if (!isReached || !files_.Rename(target, target + world_.stamp)) return -2;
      } else if (!isReached || !Delete(target, options)) {
        return -3;
      }
    }
    if ((options & kMove) != 0) return isReached && files_.Rename(source, target) ? 0 : -6;
    std::optional<Found> here = find(source);
    if (!here) return -16;
    if (here->isLink && (options & kKeepLinks) != 0) return -7;
    if (!here->isFolder) return merges || (isReached && files_.Copy(source, target)) ? 0 : -7;
    if ((options & kRecurse) == 0) return -17;
    if (!merges && !(isReached && files_.MakeFolder(target))) return -18;
    if (!isReached) return (options & kIgnore) != 0 ? 0 : -43;
    for (const std::wstring& name : files_.Entries(source)) {
      int status = Item(source + L"\\" + name, target + L"\\" + name, name, options);
      if (status != 0 && (options & kIgnore) == 0) return status;
    }
    return 0;
  }

  World world_;
  Files files_;
};

}  // namespace tree_model
