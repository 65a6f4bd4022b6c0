// Helpers for the tests of files and trees: a test's own folder, its contents, traces that abbreviate its
// path.
#pragma once

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/heap.h"
#include "paths/path.h"
#include "rig/action_test.h"
#include "rig/internals.h"

namespace tree_test {

HX_INTERNAL(PathMake);
HX_INTERNAL(PathToWide);
HX_INTERNAL(HeapFreeSafe);

/// The contents of a tree: the entries by their path from its root ("a\b"), each with its contents; a folder
/// has the contents kFolder.
using Tree = std::map<std::wstring, std::string>;

/// The contents of a folder in a Tree. No file has these.
inline constexpr char kFolder[] = "<folder>";

/// The form of an absolute path that Windows accepts at any length and with any name, also with dots and
/// blanks at its end.
inline std::wstring Unlimited(const std::wstring& path) {
  return path.starts_with(L"\\\\?\\") ? path : L"\\\\?\\" + path;
}

/// Writes a file. Its folder must exist.
inline void MakeFile(const std::wstring& path, std::string_view contents = "x") {
  HANDLE file =
      CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE) << rig::ToUtf8(path) << ": " << GetLastError();
  DWORD written = 0;
  EXPECT_TRUE(WriteFile(file, contents.data(), static_cast<DWORD>(contents.size()), &written, nullptr));
  EXPECT_EQ(written, contents.size());
  CloseHandle(file);
}

/// Creates a folder. Its parent must exist.
inline void MakeFolder(const std::wstring& path) {
  ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr)) << rig::ToUtf8(path) << ": " << GetLastError();
}

/// Returns the contents of a file; "<none>" if it cannot be opened.
inline std::string Contents(const std::wstring& path) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return "<none>";
  std::string contents;
  char buffer[512];
  DWORD got = 0;
  while (ReadFile(file, buffer, sizeof buffer, &got, nullptr) && got != 0) contents.append(buffer, got);
  CloseHandle(file);
  return contents;
}

/// Returns the entries below a folder; empty if there is no such folder.
inline Tree TreeOf(const std::wstring& folder) {
  Tree tree;
  std::vector<std::wstring> left = {L""};
  while (!left.empty()) {
    std::wstring below = left.back();
    left.pop_back();
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW((folder + L"\\" + below + L"*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) continue;
    do {
      std::wstring name = found.cFileName;
      if (name == L"." || name == L"..") continue;
      if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
        tree[below + name] = kFolder;
        left.push_back(below + name + L"\\");
      } else {
        tree[below + name] = Contents(folder + L"\\" + below + name);
      }
    } while (FindNextFileW(search, &found));
    FindClose(search);
  }
  return tree;
}

/// Makes the entries of `tree` below an existing folder.
inline void MakeTree(const std::wstring& folder, const Tree& tree) {
  for (const auto& [path, contents] : tree) {
    if (contents == kFolder) {
      MakeFolder(folder + L"\\" + path);
    } else {
      MakeFile(folder + L"\\" + path, contents);
    }
  }
}

/// Deletes a folder with its contents; links are deleted themselves.
inline void RemoveTree(const std::wstring& folder) {
  WIN32_FIND_DATAW found;
  HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
  if (search != INVALID_HANDLE_VALUE) {
    do {
      std::wstring name = found.cFileName;
      if (name == L"." || name == L"..") continue;
      std::wstring path = folder + L"\\" + name;
      if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
        DeleteFileW(path.c_str());
      } else if (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) {
        RemoveDirectoryW(path.c_str());
      } else {
        RemoveTree(path);
      }
    } while (FindNextFileW(search, &found));
    FindClose(search);
  }
  RemoveDirectoryW(folder.c_str());
}

/// Describes a tree in words, for messages of failing tests.
inline std::string Describe(const Tree& tree) {
  std::string text;
  for (const auto& [path, contents] : tree) {
    text += rig::ToUtf8(path) + (contents == kFolder ? "\\" : " = " + contents.substr(0, 20)) + "\n";
  }
  return text;
}

/// The test's own folder below the temporary folder, removed at the end with its contents.
class OwnFolder {
 public:
  OwnFolder() {
    wchar_t temporary[MAX_PATH];
    EXPECT_NE(GetTempPathW(MAX_PATH, temporary), 0u);
    wchar_t longForm[MAX_PATH];
    EXPECT_NE(GetLongPathNameW(temporary, longForm, MAX_PATH), 0u);
    static unsigned number = 0;
    path_ =
        longForm + (L"hx trees " + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++number));
    MakeFolder(path_);
  }
  ~OwnFolder() {
    RemoveTree(path_);
    EXPECT_EQ(GetFileAttributesW(path_.c_str()), INVALID_FILE_ATTRIBUTES)
        << "the test's folder was not removed";
  }
  OwnFolder(const OwnFolder&) = delete;
  OwnFolder& operator=(const OwnFolder&) = delete;

  /// The folder's absolute path.
  const std::wstring& Path() const { return path_; }
  /// The absolute path of an entry below it.
  std::wstring operator/(const std::wstring& below) const { return path_ + L"\\" + below; }

 private:
  std::wstring path_;
};

/// Internal operations in a rigged world, with the test's own folder.
class TreeTest : public rig::RiggedInternalsTest {
 protected:
  /// The test's folder; "T:" in Calls.
  OwnFolder folder_;

  /// The calls since the last time, with "T:" for the test's folder.
  std::vector<std::string> Calls() {
    std::vector<std::string> lines = TheRig().trace.LinesIn(rig::ToUtf8(folder_.Path()));
    TheRig().trace.Clear();
    return lines;
  }
};

/// Compares the calls so far, with the test's folder as "T:", with the given lines.
#define EXPECT_CALLS(...) \
  ::rig::CompareLines(__FILE__, __LINE__, "trace", std::vector<std::string> __VA_ARGS__, Calls())

/// A path of the library, released at the end of its scope.
class OwnPath {
 public:
  /// Takes over a reference.
  explicit OwnPath(PathObject* path = nullptr) : path_(path) {}
  /// Makes a path of text.
  explicit OwnPath(const std::wstring& text) : path_(PathMake(nullptr, rig::ToUtf8(text).c_str(), -1)) {}
  ~OwnPath() { Drop(); }
  OwnPath(OwnPath&& other) noexcept : path_(other.path_) { other.path_ = nullptr; }
  OwnPath& operator=(OwnPath&& other) noexcept {
    std::swap(path_, other.path_);
    return *this;
  }
  PathObject* get() const { return path_; }
  explicit operator bool() const { return path_ != nullptr; }
  /// Returns its wide text; "<none>" for null.
  std::wstring Text() const {
    wchar_t* text = PathToWide(path_);
    std::wstring copy = text == nullptr ? L"<none>" : text;
    HeapFreeSafe(text);
    return copy;
  }

 private:
  void Drop() {
    if (path_ != nullptr) rig::CallGuarded([&] { path_->ops.Release(path_); });
    path_ = nullptr;
  }
  PathObject* path_;
};

}  // namespace tree_test
