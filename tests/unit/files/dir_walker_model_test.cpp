// The directory walker compared with a recursive listing: random trees, every combination of its settings.

#include <filesystem>
#include <random>

#include "unit/files/walker_tools.h"

namespace walker_test {

/// A walker's settings.
struct Settings {
  DWORD flags;
  LONG maxDepth;
  DWORD followReparse;
  DWORD foldersAfterContents;
  const char* pattern;
};

/// Names of a listing have the plain 8.3 form, so that Windows compares a pattern only with them.
bool Fits(const std::wstring& name, const char* pattern) {
  std::string text = pattern == nullptr ? "*" : pattern;
  if (text == "*" || text == "*.*") return true;
  size_t star = text.find('*');
  std::string plain = rig::ToUtf8(name);
  auto matches = [](const std::string& part, const std::string& wanted) {
    return part.size() == wanted.size() &&
           std::equal(part.begin(), part.end(), wanted.begin(),
                      [](char a, char b) { return b == '?' || toupper(a) == toupper(b); });
  };
  if (star == std::string::npos) return matches(plain, text);
  std::string head = text.substr(0, star), tail = text.substr(star + 1);
  return plain.size() >= head.size() + tail.size() && matches(plain.substr(0, head.size()), head) &&
         matches(plain.substr(plain.size() - tail.size()), tail);
}

/// Entries whose names begin with this are links, as the test reports them.
bool IsLink(const std::wstring& name) {
  return name[0] == L'l';
}

/// An entry of a listing; a folder has its contents.
struct Entry {
  std::wstring name;
  bool isFolder;
  std::vector<Entry> entries;
};

/// The contents of a folder, in the order in which Windows lists it.
std::vector<Entry> Listed(const std::filesystem::path& folder) {
  std::vector<Entry> entries;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    bool isFolder = entry.is_directory();
    entries.push_back({entry.path().filename().wstring(), isFolder, {}});
    if (isFolder) entries.back().entries = Listed(entry.path());
  }
  return entries;
}

/// Returns what a walk with these settings returns, folder by folder.
class Model {
 public:
  explicit Model(Settings settings) : set_(settings) {}

  Names Walk(const std::vector<Entry>& root) {
    List(root, L"", 1);
    return names_;
  }

 private:
  bool Unlimited() const { return set_.maxDepth == 0; }
  bool ReturnsFolders() const { return (set_.flags & 2) != 0; }

  void List(const std::vector<Entry>& folder, const std::wstring& below, LONG depth) {
    bool asked = set_.pattern != nullptr && (Unlimited() || depth == set_.maxDepth);
    for (const auto& [name, isFolder, entries] : folder) {
      if (asked && !Fits(name, set_.pattern)) continue;
      if (!isFolder && set_.pattern != nullptr && (Unlimited() || depth != set_.maxDepth) &&
          !Fits(name, set_.pattern)) {
        continue;
      }
      if (set_.followReparse == 0 && IsLink(name)) continue;
      if (isFolder && !ReturnsFolders() && !Unlimited() && depth >= set_.maxDepth) continue;
      if (!isFolder) {
        if ((set_.flags & 1) != 0) names_.push_back(below + name);
        continue;
      }
      bool isReturned = ReturnsFolders() && Fits(name, set_.pattern);
      if (isReturned && set_.foldersAfterContents == 0) names_.push_back(below + name);
      if (!Unlimited() && depth >= set_.maxDepth) continue;
      List(entries, below + name + L"\\", depth + 1);
      if (isReturned && set_.foldersAfterContents != 0) names_.push_back(below + name);
    }
  }

  Settings set_;
  Names names_;
};

class DirWalkerModelTest : public tree_test::TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    TheRig().tracing = false;
    auto mark = [](WIN32_FIND_DATAW* found) {
      if (IsLink(found->cFileName)) found->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
    };
    TheRig().On<::FindFirstFileW>([mark](const wchar_t* path, WIN32_FIND_DATAW* found) {
      HANDLE search = rig::Function<&::FindFirstFileW>::Real()(path, found);
      if (search != INVALID_HANDLE_VALUE) mark(found);
      return search;
    });
    TheRig().On<::FindNextFileW>([mark](HANDLE search, WIN32_FIND_DATAW* found) {
      BOOL more = rig::Function<&::FindNextFileW>::Real()(search, found);
      if (more) mark(found);
      return more;
    });
  }

  /// Makes a random tree below `folder`.
  void Grow(const std::wstring& folder, std::mt19937& random, int depth) {
    static const wchar_t* const kNames[] = {L"a",     L"ab",  L"b",       L"a.txt", L"b.txt",
                                            L"l.txt", L"lnk", L"sub.dir", L"c.x",   L"ac.dir"};
    for (const wchar_t* name : kNames) {
      unsigned choice = random() % 10;
      if (choice < 2) {
        tree_test::MakeFile(folder + L"\\" + name);
      } else if (choice < 4 && depth < 3) {
        tree_test::MakeFolder(folder + L"\\" + name);
        Grow(folder + L"\\" + name, random, depth + 1);
      }
    }
  }
};

TEST_F(DirWalkerModelTest, ReturnsWhatARecursiveListingFinds) {
  constexpr unsigned kSeed = 4720;
  constexpr int kTrees = 6;
  std::mt19937 random(kSeed);
  size_t walks = 0;
  size_t entries = 0;
  for (int one = 0; one < kTrees; ++one) {
    std::wstring root = folder_ / std::to_wstring(one);
    tree_test::MakeFolder(root);
    Grow(root, random, one % 4);
    std::vector<Entry> listed = Listed(root);
    OwnWalker walker(nullptr);
    for (const char* pattern : {static_cast<const char*>(nullptr), "*", "*.*", "a*", "?", "*.TXT", "?.t*"}) {
      for (unsigned bits = 0; bits < 4 * 4 * 4; ++bits) {
        Settings set = {bits % 4, static_cast<LONG>(bits / 4 % 4), bits / 16 % 2, bits / 32 % 2, pattern};
        DirWalkerReset(walker.get(), tree_test::OwnPath(root).get());
        walker->flags = set.flags;
        walker->maxDepth = set.maxDepth;
        walker->followReparse = set.followReparse;
        walker->foldersAfterContents = set.foldersAfterContents;
        if (pattern != nullptr) walker.SetPattern(pattern);
        Names expected = Model(set).Walk(listed);
        ASSERT_EQ(Rest(walker, root), expected)
            << "seed " << kSeed << ", tree " << one << ", flags " << set.flags << ", maxDepth "
            << set.maxDepth << ", followReparse " << set.followReparse << ", foldersAfterContents "
            << set.foldersAfterContents << ", pattern " << (pattern == nullptr ? "none" : pattern) << "\n"
            << tree_test::Describe(tree_test::TreeOf(root));
        ASSERT_EQ(TheRig().ledger.Count(rig::kSearch), 0u);
        ++walks;
        entries += expected.size();
      }
    }
  }
  EXPECT_EQ(walks, kTrees * 7u * 64u);
  EXPECT_GT(entries, walks);
}

}  // namespace walker_test
