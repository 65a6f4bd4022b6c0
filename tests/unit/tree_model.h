// The copy/move engine as a plain program over std::filesystem. Used by the engine's model test.
#pragma once

#include <windows.h>

#include <filesystem>
#include <string>
#include <vector>

namespace tree_model {

namespace fs = std::filesystem;

/// What the model is told of the world beyond the files.
struct World {
  std::wstring stamp;  ///< What a name that is set aside ends with.
};

/// Copying a file of this name, deleting it, and making a folder of it fails, as if it were in use.
inline bool IsRefused(const std::wstring& path) {
  return fs::path(path).filename() == L"locked";
}

/// The entries of a folder, in the order in which the system lists them.
inline std::vector<std::wstring> Entries(const std::wstring& folder) {
  std::vector<std::wstring> names;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error))
    names.push_back(entry.path().filename().wstring());
  return names;
}

/// The engine.
class Engine {
 public:
  explicit Engine(World world) : world_(std::move(world)) {}

  /// Runs over the elements behind the first one.
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
  enum : unsigned { kMove = 1, kOverwrite = 2, kAside = 4, kIgnore = 8, kRecurse = 16, kCreate = 32 };

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
  static bool Exists(const std::wstring& name) {
    std::error_code error;
    return fs::exists(name, error);
  }
  static bool IsFolder(const std::wstring& name) {
    std::error_code error;
    return fs::is_directory(name, error);
  }
  static bool MakeFolder(const std::wstring& name) {
    std::error_code error;
    return !IsRefused(name) && fs::create_directory(name, error) && !error;
  }
  static bool Rename(const std::wstring& from, const std::wstring& to) {
    std::error_code error;
    if (Exists(to)) return false;
    fs::rename(from, to, error);
    return !error;
  }
  // From the inside, in the order of the listing, up to the first failure.
  static bool Delete(const std::wstring& name) {
    std::error_code error;
    if (IsFolder(name)) {
      for (const std::wstring& entry : Entries(name)) {
        if (!Delete(name + L"\\" + entry)) return false;
      }
    } else if (IsRefused(name)) {
      return false;
    }
    return fs::remove(name, error) && !error;
  }

  // The pattern's last name has at most one asterisk; names are of the plain 8.3 form.
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
      if ((options & kCreate) != 0) MakeFolder(Trimmed(target));
    };
    if (source.find_first_of(L"*?") == std::wstring::npos) {
      create();
      return Item(Trimmed(source), Trimmed(target), options);
    }
    std::wstring folder = FolderOf(source);
    std::wstring pattern = source.substr(folder.size());
    if (!IsFolder(folder)) return -43;
    std::vector<std::wstring> matches;
    for (const std::wstring& name : Entries(folder)) {
      if (Matches(name, pattern)) matches.push_back(name);
    }
    // A folder's own entries match too, and make the target come into being.
    if (matches.empty() && !Matches(L".", pattern) && !Matches(L"..", pattern)) return 0;
    create();
    for (const std::wstring& name : matches) {
      int status = Item(folder + name, FolderOf(target) + name, options);
      if (status != 0 && (options & kIgnore) == 0) return status;
    }
    return 0;
  }

  int Item(const std::wstring& source, const std::wstring& target, unsigned options) {
    bool merges = false;
    if (Exists(target)) {
      if ((options & kOverwrite) == 0) {
        if ((options & kMove) != 0) return -15;
        if (!IsFolder(target) || (options & kRecurse) == 0) return 0;
        merges = true;
      } else if ((options & kAside) != 0) {
        if (!Rename(target, target + world_.stamp)) return -2;
      } else if (!Delete(target)) {
        return -3;
      }
    }
    if ((options & kMove) != 0) return Rename(source, target) ? 0 : -6;
    if (!Exists(source)) return -16;
    if (!IsFolder(source)) {
      if (merges) return 0;
      std::error_code error;
      return !IsRefused(target) && fs::copy_file(source, target, error) && !error ? 0 : -7;
    }
    if ((options & kRecurse) == 0) return -17;
    if (!merges && !MakeFolder(target)) return -18;
    for (const std::wstring& name : Entries(source)) {
      int status = Item(source + L"\\" + name, target + L"\\" + name, options);
      if (status != 0 && (options & kIgnore) == 0) return status;
    }
    return 0;
  }

  World world_;
};

}  // namespace tree_model
