// The copy/move engine compared with a model over std::filesystem: random trees, random command lines.

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "files/tree_copy.h"
#include "unit/files/tree_model.h"
#include "unit/files/tree_tools.h"

namespace tree_copy_model_test {

using tree_test::kFolder;
using tree_test::Tree;

HX_INTERNAL(TreeCopyMove);

/// A tree whose files are distinguished by their sizes; listings report these without opening the files.
class SizedTree {
 public:
  /// Returns the entries below a folder.
  static std::map<std::wstring, long long> Of(const std::wstring& folder) {
    std::map<std::wstring, long long> tree;
    Add(folder, L"", tree);
    return tree;
  }

 private:
  static void Add(const std::wstring& folder, const std::wstring& below,
                  std::map<std::wstring, long long>& tree) {
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return;
    do {
      std::wstring name = found.cFileName;
      if (name == L"." || name == L"..") continue;
      bool isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      tree[below + name] = isFolder ? -1LL : static_cast<long long>(found.nFileSizeLow);
      if (isFolder) Add(folder + L"\\" + name, below + name + L"\\", tree);
    } while (FindNextFileW(search, &found));
    FindClose(search);
  }
};

std::string Describe(const std::map<std::wstring, long long>& tree) {
  std::string text;
  for (const auto& [name, size] : tree) {
    text += "  " + rig::ToUtf8(name) + (size < 0 ? "\\" : " " + std::to_string(size)) + "\n";
  }
  return text;
}

class TreeCopyModelTest : public tree_test::TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    TheRig().tracing = false;
    auto refused = [](const wchar_t* name) {
      bool isRefused = tree_model::IsRefused(name);
      if (isRefused) SetLastError(ERROR_SHARING_VIOLATION);
      return isRefused;
    };
    TheRig().On<::CopyFileW>([=](const wchar_t* source, const wchar_t* target, BOOL keep) {
      return refused(target) ? FALSE : rig::Function<&::CopyFileW>::Real()(source, target, keep);
    });
    TheRig().On<::DeleteFileW>([=](const wchar_t* name) {
      return refused(name) ? FALSE : rig::Function<&::DeleteFileW>::Real()(name);
    });
    TheRig().On<::CreateDirectoryW>([=](const wchar_t* name, SECURITY_ATTRIBUTES* security) {
      return refused(name) ? FALSE : rig::Function<&::CreateDirectoryW>::Real()(name, security);
    });
  }

  static constexpr wchar_t kStamp[] = L" 2026-11-15 11-30-45";

  unsigned Below(unsigned limit) { return random_() % limit; }

  std::wstring RandomName() {
    static const wchar_t* const kNames[] = {L"a",      L"b",   L"a.txt",        L"c.txt",
                                            L"locked", L"sub", L"\u00E9\u4E2D", L"ab~1.x"};
    return kNames[Below(std::size(kNames))];
  }

  /// Adds entries to a tree below the folder `below` ("" or "a\").
  void Grow(const std::wstring& below, int depth, unsigned most, Tree& tree) {
    for (unsigned left = 1 + Below(most); left > 0; --left) {
      std::wstring name = below + RandomName();
      if (tree.count(name) != 0) continue;
      bool isFolder = depth < 3 && Below(5) < 2;
      tree[name] = isFolder ? kFolder : std::string(tree.size() + 1, 'x');
      if (isFolder) Grow(name + L"\\", depth + 1, 2, tree);
    }
  }

  std::wstring RandomEntry(const Tree& tree, const std::wstring& below) {
    std::vector<std::wstring> entries;
    for (const auto& [name, contents] : tree) {
      if (name.starts_with(below + L"\\")) entries.push_back(name);
    }
    if (entries.empty() || Below(10) == 0) return below + L"\\" + RandomName();
    return entries[Below(static_cast<unsigned>(entries.size()))];
  }

  std::wstring RandomOptions() {
    static const wchar_t kLetters[] = L"mmmooobbiirrrrrrnnlckefugzxR";
    std::wstring group = L"-";
    for (unsigned left = 1 + Below(5); left > 0; --left) group += kLetters[Below(std::size(kLetters) - 1)];
    return group;
  }

  std::wstring RandomSource(const Tree& tree) {
    static const wchar_t* const kPatterns[] = {L"*", L"*.*", L"a*", L"*.txt", L"?", L"zz*", L"lo*"};
    static const wchar_t* const kSuffixes[] = {L"", L"", L"\\", L"\\.", L"."};
    // The whole of s, an entry of it, or a pattern for the entry and others.
    std::wstring entry = Below(6) == 0 ? L"s" : RandomEntry(tree, L"s");
    if (Below(2) == 0) return entry + kSuffixes[Below(std::size(kSuffixes))];
    if (Below(20) == 0) return L"s\\none\\*";
    size_t folder = entry.rfind(L'\\');
    if (folder == std::wstring::npos) return L"s\\" + std::wstring(kPatterns[Below(std::size(kPatterns))]);
    return entry.substr(0, folder + 1) + kPatterns[Below(std::size(kPatterns))];
  }

  std::wstring RandomTarget(const Tree& tree) {
    static const wchar_t* const kSuffixes[] = {L"", L"", L"\\", L"\\.", L"\\a"};
    std::wstring entry = Below(4) == 0   ? L"t"
                         : Below(3) == 0 ? L"t\\" + RandomName()
                                         : RandomEntry(tree, L"t");
    return entry + kSuffixes[Below(std::size(kSuffixes))];
  }

  /// Returns the elements of a random command line.
  std::vector<std::wstring> RandomElements(const Tree& tree) {
    std::vector<std::wstring> elements;
    for (unsigned left = 1 + Below(2); left > 0; --left) {
      if (Below(5) != 0) elements.push_back(RandomOptions());
      elements.push_back(RandomSource(tree));
    }
    elements.push_back(RandomTarget(tree));
    return elements;
  }

  static std::vector<std::wstring> Under(const std::wstring& folder, std::vector<std::wstring> elements) {
    for (std::wstring& element : elements) {
      if (element[0] != L'-') element = folder + L"\\" + element;
    }
    return elements;
  }

  std::mt19937 random_;
};

TEST_F(TreeCopyModelTest, DoesWhatTheModelDoes) {
  // The same trees in every run, so that a build that passed continues to pass; HX_SEED asks for others.
  const char* const given = std::getenv("HX_SEED");
  const unsigned seed = given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : 472024;
  // The shipped library gets all trees, on the processor that it ships for; other libraries get a quarter.
  const char* const folder = std::getenv("HX_LIBRARY_DIR");
  const std::string library = folder ? folder : "";
  const bool isOther =
      library.find("checked") != std::string::npos || library.find("arm64") == std::string::npos;
  const int trees = isOther ? 500 : 2000;
  std::map<int, int> codes;
  int changed = 0;
  for (int one = 0; one < trees; ++one) {
    random_.seed(seed + static_cast<unsigned>(one));
    Tree tree = {{L"s", kFolder}, {L"t", kFolder}};
    Grow(L"s\\", 1, 3, tree);
    Grow(L"t\\", 1, 2, tree);
    std::vector<std::wstring> elements = RandomElements(tree);
    // The name that the target would get when it is renamed aside may be taken.
    if (tree.count(elements.back()) != 0 && Below(4) == 0) tree[elements.back() + kStamp] = kFolder;
    const std::wstring engine = folder_ / L"e";
    const std::wstring model = folder_ / L"m";
    for (const std::wstring& folder : {engine, model}) {
      tree_test::MakeFolder(folder);
      tree_test::MakeTree(folder, tree);
    }
    auto before = SizedTree::Of(engine);
    std::wstring line = L"engine";
    std::string shown;
    for (const std::wstring& element : Under(engine, elements)) line += L" \"" + element + L"\"";
    for (const std::wstring& element : elements) shown += " " + rig::ToUtf8(element);
    // Another test covers a backslash before a quotation mark in a command line.
    for (size_t at = line.find(L"\\\""); at != std::wstring::npos; at = line.find(L"\\\"", at + 3)) {
      line.insert(at, L"\\");
    }
    int expected = tree_model::Engine<tree_model::RealFiles>({kStamp}).Run(Under(model, elements));
    int result = TreeCopyMove(line.c_str());
    auto left = SizedTree::Of(engine);
    auto wanted = SizedTree::Of(model);
    ASSERT_EQ(result, expected) << "seed " << seed << " + " << one << ":" << shown << "\nbefore:\n"
                                << Describe(before);
    ASSERT_EQ(left, wanted) << "seed " << seed << " + " << one << ":" << shown << "\nbefore:\n"
                            << Describe(before) << "engine:\n"
                            << Describe(left) << "model:\n"
                            << Describe(wanted);
    // The size identifies a file; now and then all bytes are compared.
    if (one % 20 == 0) {
      ASSERT_EQ(tree_test::TreeOf(engine), tree_test::TreeOf(model)) << shown;
    }
    ++codes[result];
    changed += left == before ? 0 : 1;
    tree_test::RemoveTree(engine);
    tree_test::RemoveTree(model);
  }
  // Trees and lines are chosen so that every code occurs and most runs change something.
  for (int code : {0, -2, -3, -6, -7, -15, -16, -17, -18, -43})
    EXPECT_GE(codes[code], isOther ? 1 : 3) << code;
  EXPECT_GT(changed, trees / 3);
  std::string text;
  for (const auto& [code, count] : codes) text += " " + std::to_string(code) + ":" + std::to_string(count);
  RecordProperty("codes", text);
}

}  // namespace tree_copy_model_test
