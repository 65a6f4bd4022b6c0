// Helpers for the tests of the copy/move engine: a folder in which a test makes entries, and the two entry
// points of the engine.
#pragma once

#include <string>
#include <vector>

#include "files/tree_copy.h"
#include "unit/files/tree_tools.h"

namespace tree_copy_test {

using tree_test::kFolder;
using tree_test::MakeFile;
using tree_test::MakeFolder;
using tree_test::Tree;
using tree_test::TreeOf;

HX_INTERNAL(TreeCopyMove);
HX_INTERNAL(TreeCopyMoveItem);

using Names = std::vector<std::wstring>;

/// The engine in the test's own folder.
class TreeCopyTest : public tree_test::TreeTest {
 protected:
  /// Makes these entries below the test's folder; a name that ends with a backslash makes a folder.
  void Make(const std::vector<std::wstring>& names) {
    for (const std::wstring& name : names) {
      if (name.back() == L'\\') {
        MakeFolder(folder_ / name.substr(0, name.size() - 1));
      } else {
        MakeFile(folder_ / name, rig::ToUtf8(name));
      }
    }
  }
  /// Returns the entries below the test's folder; a file that Make did not make there reads "name =
  /// contents".
  std::vector<std::wstring> Made() {
    std::vector<std::wstring> names;
    for (const auto& [name, contents] : TreeOf(folder_.Path())) {
      bool isOwn = contents == rig::ToUtf8(name);
      names.push_back(contents == kFolder ? name + L"\\"
                      : isOwn             ? name
                                          : name + L" = " + rig::ToWide(contents));
    }
    return names;
  }
  /// Runs the engine. "T:" means the test's folder, "'" a quotation mark (a backslash before it is doubled,
  /// as command lines require).
  int Run(const std::wstring& arguments) {
    std::wstring line;
    for (size_t at = 0; at < arguments.size(); ++at) {
      if (arguments[at] == L'\'') {
        line += line.ends_with(L'\\') ? L"\\\"" : L"\"";
      } else if (arguments.compare(at, 2, L"T:") == 0) {
        line += folder_.Path();
        ++at;
      } else {
        line += arguments[at];
      }
    }
    return TreeCopyMove(line.c_str());
  }
  int Item(const std::wstring& source, const std::wstring& target, DWORD options) {
    return TreeCopyMoveItem((folder_ / source).c_str(), (folder_ / target).c_str(), options);
  }
  /// Makes the calls of a function that copies, moves or deletes `name` fail.
  void Refuse(const std::wstring& name, DWORD error = ERROR_ACCESS_DENIED) {
    std::wstring path = folder_ / name;
    auto refused = [=](const wchar_t* asked) {
      if (path == asked) SetLastError(error);
      return path == asked;
    };
    TheRig().On<::CopyFileW>([=](const wchar_t* source, const wchar_t* target, BOOL keep) {
      return refused(target) ? FALSE : rig::Function<&::CopyFileW>::Real()(source, target, keep);
    });
    TheRig().On<::MoveFileW>([=](const wchar_t* source, const wchar_t* target) {
      return refused(source) ? FALSE : rig::Function<&::MoveFileW>::Real()(source, target);
    });
    TheRig().On<::DeleteFileW>([=](const wchar_t* file) {
      return refused(file) ? FALSE : rig::Function<&::DeleteFileW>::Real()(file);
    });
    TheRig().On<::CreateDirectoryW>([=](const wchar_t* made, SECURITY_ATTRIBUTES* security) {
      return refused(made) ? FALSE : rig::Function<&::CreateDirectoryW>::Real()(made, security);
    });
    TheRig().On<::FindFirstFileW>([=](const wchar_t* asked, WIN32_FIND_DATAW* found) {
      return refused(asked) ? INVALID_HANDLE_VALUE : rig::Function<&::FindFirstFileW>::Real()(asked, found);
    });
  }
};

}  // namespace tree_copy_test
