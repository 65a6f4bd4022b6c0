// The copy/move engine on a disk in memory with names that lead to other entries: random trees, every set of
// options. Nothing is lost, whichever call fails, and the engine does the same as the model.

#include <cstdlib>
#include <random>
#include <set>

#include "unit/files/name_disk.h"
#include "unit/files/tree_copy_tools.h"
#include "unit/files/tree_model.h"

namespace tree_names_model_test {

using name_disk::Disk;
using name_disk::Node;
using Contents = std::map<std::wstring, std::string>;

HX_INTERNAL(TreeCopyMove);

constexpr wchar_t kStamp[] = L" 2026-11-15 11-30-45";

/// The model's files on such a disk.
class DiskFiles {
 public:
  explicit DiskFiles(Disk* disk) : disk_(disk) {}
  std::vector<std::wstring> Entries(const std::wstring& folder) {
    return Disk::Names(*disk_->Through(disk_->Find(folder)));
  }
  std::optional<tree_model::Found> Find(const std::wstring& path) {
    Node* node = disk_->Find(path);
    if (node == nullptr) return std::nullopt;
    return tree_model::Found{node->name, node->alias, node->isFolder, !node->link.empty()};
  }
  bool MakeFolder(const std::wstring& path) { return disk_->MakeFolder(path) == 0; }
  bool Rename(const std::wstring& from, const std::wstring& to) { return disk_->Move(from, to) == 0; }
  bool Copy(const std::wstring& from, const std::wstring& to) { return disk_->Copy(from, to) == 0; }
  bool DeleteFile(const std::wstring& path) { return disk_->Delete(path, false) == 0; }
  bool RemoveFolder(const std::wstring& path) { return disk_->Delete(path, true) == 0; }

 private:
  Disk* disk_;
};

/// The initial contents of a disk, in the order of creation: paths, and whether each is a folder.
struct Plan {
  std::vector<std::pair<std::wstring, bool>> entries;
  /// Links to folders, with their targets.
  std::vector<std::pair<std::wstring, std::wstring>> links;
  bool sourceMindsCase = false;
};

void Build(const Plan& plan, Disk& disk) {
  disk.locked = {L"locked"};
  disk.Plant(L"Q:", L"s", nullptr)->mindsCase = plan.sourceMindsCase;
  disk.Plant(L"Q:", L"t", nullptr);
  for (const auto& [path, isFolder] : plan.entries) {
    size_t leaf = path.rfind(L'\\');
    std::wstring folder = L"Q:\\" + path.substr(0, leaf);
    if (disk.Exactly(folder) == nullptr) continue;
    std::string contents = "from " + rig::ToUtf8(path);
    Node* made = disk.Plant(folder, path.substr(leaf + 1), isFolder ? nullptr : &contents);
    if (made != nullptr) made->mindsCase = disk.Exactly(folder)->mindsCase;
  }
  const std::string secret = "from outside";
  disk.Plant(L"Q:", L"outside", nullptr);
  disk.Plant(L"Q:\\outside", L"a", &secret);
  disk.Plant(L"Q:\\outside", L"Data", nullptr);
  for (const auto& [path, target] : plan.links) {
    size_t leaf = path.rfind(L'\\');
    std::wstring folder = L"Q:\\" + path.substr(0, leaf);
    if (disk.Exactly(folder) != nullptr) disk.PlantLink(folder, path.substr(leaf + 1), target);
  }
}

std::multiset<std::string> FilesOf(const Contents& tree) {
  std::multiset<std::string> files;
  for (const auto& [path, contents] : tree) {
    if (contents != "<folder>" && contents != "<link>") files.insert(contents);
  }
  return files;
}

std::string Describe(const Contents& tree) {
  std::string text;
  for (const auto& [path, contents] : tree) text += "  '" + rig::ToUtf8(path) + "' " + contents + "\n";
  return text;
}

class TreeNamesModelTest : public tree_test::TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    TheRig().tracing = false;
  }
  unsigned Below(unsigned limit) { return random_() % limit; }

  std::wstring RandomName() {
    // Each short name is that of one of the long names, the first or the second of its kind.
    static const wchar_t* const kNames[] = {
        L"LongFileName.txt",
        L"LONGFI~1.TXT",
        L"longfi~2.txt",
        L"Long folder",
        L"LONGFO~1",
        L"report",
        L"report.",
        L"report ",
        L"REPORT~1",
        L"Report",
        L"Data",
        L"Data.",
        L"data",
        L"DATA~1",
        L"locked",
        L"a. .",
        L"a",
        L"\u00E9",
    };
    return kNames[Below(std::size(kNames))];
  }
  void Grow(const std::wstring& below, int depth, Plan& plan) {
    for (unsigned left = 1 + Below(depth == 0 ? 5 : 3); left > 0; --left) {
      std::wstring path = below + L"\\" + RandomName();
      bool isFolder = depth < 2 && Below(5) < 2;
      plan.entries.emplace_back(path, isFolder);
      if (isFolder) Grow(path, depth + 1, plan);
    }
  }
  /// Adds links to a plan: to a folder outside both trees, to the folder around them, to a folder of the
  /// other tree.
  void AddLinks(Plan& plan) {
    for (const wchar_t* tree : {L"s", L"t"}) {
      for (unsigned left = Below(4); left > 0; --left) {
        std::wstring folder = tree;
        if (!plan.entries.empty() && Below(2) == 0) {
          const auto& [path, isFolder] = plan.entries[Below(static_cast<unsigned>(plan.entries.size()))];
          if (isFolder && path[0] == tree[0]) folder = path;
        }
        const std::wstring targets[] = {L"Q:\\outside", L"Q:\\" + folder, L"Q:\\s", L"Q:\\t"};
        plan.links.emplace_back(folder + L"\\" + RandomName(), targets[Below(4)]);
      }
    }
  }
  Plan RandomPlan() {
    Plan plan;
    plan.sourceMindsCase = Below(3) == 0;
    Grow(L"s", 0, plan);
    if (Below(3) != 0) Grow(L"t", 0, plan);
    // The name that an entry would get when it is renamed aside can be taken.
    for (size_t at = plan.entries.size(); at > 0; --at) {
      const std::wstring& path = plan.entries[at - 1].first;
      if (path[0] == L't' && Below(4) == 0) plan.entries.emplace_back(path + kStamp, false);
    }
    return plan;
  }

  std::mt19937 random_;
};

/// The letters of a set of options, one bit each.
std::wstring Letters(unsigned options) {
  std::wstring letters = L"-";
  for (unsigned bit = 0; bit < 7; ++bit) {
    if ((options >> bit & 1) != 0) letters += L"mobirnl"[bit];
  }
  return letters;
}

TEST_F(TreeNamesModelTest, LosesNothingAndDoesWhatTheModelDoes) {
  // HX_SEED asks for other trees than those of every run.
  const char* const given = std::getenv("HX_SEED");
  const unsigned seed = given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : 71024;
  std::map<int, int> codes;
  for (unsigned one = 0; one < 2560; ++one) {
    random_.seed(seed + one);
    Plan plan = RandomPlan();
    Contents before;
    const unsigned options = one % 128;
    // Links form cycles; without "l" the engine would never end.
    if ((options & 64) != 0) AddLinks(plan);
    std::vector<std::wstring> elements = {Letters(options), L"Q:\\s\\*", L"Q:\\t\\."};
    if (one % 5 == 4) elements = {Letters(options), L"Q:\\s", L"Q:\\t"};
    Disk disk;
    Disk model;
    Build(plan, disk);
    Build(plan, model);
    before = disk.Tree();
    disk.Install(TheRig());
    std::wstring line = L"engine";
    for (const std::wstring& element : elements) line += L" \"" + element + L"\"";
    int result = TreeCopyMove(line.c_str());
    int expected = tree_model::Engine<DiskFiles>({kStamp}, DiskFiles(&model)).Run(elements);
    Contents after = disk.Tree();
    SCOPED_TRACE("seed " + std::to_string(seed) + " + " + std::to_string(one) + ": " + rig::ToUtf8(line) +
                 "\nbefore:\n" + Describe(before) + "after:\n" + Describe(after));
    ASSERT_EQ(result, expected);
    ASSERT_EQ(after, model.Tree()) << "model:\n" << Describe(model.Tree());
    ++codes[result];

    auto filesBefore = FilesOf(before);
    auto filesAfter = FilesOf(after);
    // Nothing outside is read, written or deleted.
    for (const auto& [path, contents] : before) {
      if (path.starts_with(L"outside")) ASSERT_EQ(after[path], contents);
    }
    for (const auto& [path, contents] : after) {
      if (path.starts_with(L"outside")) ASSERT_EQ(before.count(path), 1u) << rig::ToUtf8(path);
    }
    ASSERT_EQ(filesAfter.count("from outside"), 1u);
    const bool moves = (options & 1) != 0;
    const bool deletes = (options & 2) != 0 && (options & 4) == 0;
    for (const std::string& file : filesBefore) {
      bool isOfSource = file.starts_with("from s");
      // Only entries in the way are deleted; two names that differ only in case are in each other's way.
      if (deletes && (!isOfSource || plan.sourceMindsCase)) continue;
      ASSERT_NE(filesAfter.count(file), 0u) << file << " is lost";
    }
    if (moves) ASSERT_LE(filesAfter.size(), filesBefore.size());
    if (!moves) {
      for (const auto& [path, contents] : before) {
        if (path.starts_with(L"s\\")) ASSERT_EQ(after[path], contents) << "the source of a copy has changed";
      }
    }
    if ((options & 2) == 0) {
      for (const auto& [path, contents] : before) {
        if (path.starts_with(L"t\\")) ASSERT_EQ(after[path], contents) << "the target has changed";
      }
    }
  }
  for (int code : {0, -2, -3, -6, -7, -15, -16, -17, -18}) EXPECT_GE(codes[code], 3) << code;
}

TEST_F(TreeNamesModelTest, ATargetLosesOnlyWhatTheSourceReplaces) {
  // Without "b" a file of the target is deleted only if the source has an entry with its name, or with the
  // name of a folder around it: never because another name leads to it.
  for (unsigned one = 0; one < 600; ++one) {
    random_.seed(one);
    Plan plan = RandomPlan();
    plan.sourceMindsCase = false;
    Disk disk;
    Build(plan, disk);
    Contents before = disk.Tree();
    disk.Install(TheRig());
    TreeCopyMove(one % 2 == 0 ? L"x -moi Q:\\s\\* Q:\\t\\." : L"x -cori Q:\\s\\* Q:\\t\\.");
    auto files = FilesOf(disk.Tree());
    for (const auto& [path, contents] : before) {
      if (!path.starts_with(L"t\\") || contents == "<folder>" || files.count(contents) != 0) continue;
      std::wstring top = path.substr(2, path.find(L'\\', 2) - 2);
      bool isReplaced = std::any_of(before.begin(), before.end(), [&](const auto& entry) {
        return entry.first.starts_with(L"s\\") && name_disk::IsSame(entry.first.substr(2), top);
      });
      ASSERT_TRUE(isReplaced) << "seed " << one << ": " << rig::ToUtf8(path) << " is lost\nbefore:\n"
                              << Describe(before) << "after:\n"
                              << Describe(disk.Tree());
    }
  }
}

TEST_F(TreeNamesModelTest, WithoutLLinksAreFollowed) {
  Plan plan;
  plan.entries = {
      {L"s\\d", true}, {L"s\\d\\f", false}, {L"t\\x", true}, {L"t\\x\\g", false}, {L"s\\x", false}};
  plan.links = {{L"s\\link", L"Q:\\outside"}, {L"t\\d", L"Q:\\outside"}};
  for (const wchar_t* letters : {L"-cr", L"-crlg", L"-crlzr"}) {
    Disk disk;
    Build(plan, disk);
    disk.Install(TheRig());
    EXPECT_EQ(TreeCopyMove((std::wstring(L"x ") + letters + L" Q:\\s\\* Q:\\t\\.").c_str()), 0);
    Contents after = disk.Tree();
    EXPECT_EQ(after[L"outside\\f"], "from s\\d\\f");
    EXPECT_EQ(after[L"t\\link\\a"], "from outside");
  }
  Disk disk;
  Build(plan, disk);
  disk.Install(TheRig());
  EXPECT_EQ(TreeCopyMove(L"x -co Q:\\s\\x Q:\\t\\d"), 0);
  EXPECT_EQ(disk.Tree().count(L"outside\\a"), 0u);
}

TEST_F(TreeNamesModelTest, WithLALinkItselfIsDeletedOrMovedAndNotCopied) {
  Plan plan;
  plan.entries = {{L"s\\d", true}, {L"s\\d\\f", false}, {L"s\\x", false}, {L"t\\y", true}};
  plan.links = {{L"s\\link", L"Q:\\outside"}, {L"t\\d", L"Q:\\outside"}, {L"t\\y\\self", L"Q:\\t\\y"}};
  auto run = [&](const wchar_t* line, Contents& after) {
    Disk disk;
    Build(plan, disk);
    disk.Install(TheRig());
    int status = TreeCopyMove(line);
    after = disk.Tree();
    EXPECT_EQ(after[L"outside\\a"], "from outside");
    EXPECT_EQ(after.count(L"outside\\f"), 0u);
    return status;
  };
  Contents after;
  // Nothing is copied into a link, and a link itself is not copied.
  EXPECT_EQ(run(L"x -crl Q:\\s\\d Q:\\t\\d", after), -7);
  EXPECT_EQ(run(L"x -crl Q:\\s\\link Q:\\t\\new", after), -7);
  EXPECT_EQ(after.count(L"t\\new"), 0u);
  EXPECT_EQ(run(L"x -crli Q:\\s\\* Q:\\t\\.", after), 0);
  EXPECT_EQ(after[L"t\\x"], "from s\\x");
  EXPECT_EQ(after.count(L"t\\link"), 0u);
  // In place of a link.
  EXPECT_EQ(run(L"x -crol Q:\\s\\d Q:\\t\\d", after), 0);
  EXPECT_EQ(after[L"t\\d\\f"], "from s\\d\\f");
  EXPECT_EQ(run(L"x -mobl Q:\\s\\link Q:\\t\\d", after), 0);
  EXPECT_EQ(after[L"t\\d"], "<link>");
  EXPECT_EQ(after[std::wstring(L"t\\d") + kStamp], "<link>");
  EXPECT_EQ(after.count(L"s\\link"), 0u);
  // A folder that contains a link to itself is deleted.
  EXPECT_EQ(run(L"x -mol Q:\\s\\x Q:\\t\\y", after), 0);
  EXPECT_EQ(after[L"t\\y"], "from s\\x");
}

/// One tree with all these kinds of names, and every set of options.
class TreeNamesLossTest : public tree_test::TreeTest, public testing::WithParamInterface<unsigned> {};

TEST_P(TreeNamesLossTest, WhicheverCallFails) {
  const unsigned options = GetParam();
  Plan plan;
  for (const wchar_t* path : {L"s\\LongFileName.txt", L"s\\report", L"s\\report.", L"s\\report ",
                              L"s\\locked", L"t\\report", L"t\\longfilename other.txt", L"t\\other"}) {
    plan.entries.emplace_back(path, false);
  }
  for (const wchar_t* path : {L"s\\Data", L"s\\Data.", L"t\\data"}) {
    plan.entries.emplace_back(path, true);
    plan.entries.emplace_back(std::wstring(path) + L"\\in it", false);
  }
  // In the target, "LongFileName.txt" gets the second of these short names.
  plan.entries.emplace_back(L"s\\LONGFI~2.TXT", false);
  auto disk = std::make_unique<Disk>();
  Build(plan, *disk);
  const auto before = FilesOf(disk->Tree());
  const bool deletes = (options & 2) != 0 && (options & 4) == 0;
  rig::SweepOptions sweep;
  sweep.results.clear();
  for (int code : {0, -2, -3, -6, -7, -15, -16, -17, -18, -43, -108})
    sweep.results.insert(static_cast<UINT>(code));
  sweep.check = [&](const rig::SweepRun& run) {
    auto after = FilesOf(disk->Tree());
    for (const std::string& file : before) {
      if (deletes && file.starts_with("from t")) continue;
      EXPECT_NE(after.count(file), 0u) << file << " is lost: " << run.call << "\n" << Describe(disk->Tree());
    }
  };
  const std::wstring line = L"x " + Letters(options) + L" Q:\\s\\* -e Q:\\s\\* Q:\\t\\.";
  size_t failed = FailEachCall(
      [&](rig::Scene& scene) {
        disk = std::make_unique<Disk>();
        Build(plan, *disk);
        disk->Install(scene.rig);
        return static_cast<UINT>(TreeCopyMove(line.c_str()));
      },
      {}, sweep);
  EXPECT_GE(failed, 6u);
}

INSTANTIATE_TEST_SUITE_P(Options, TreeNamesLossTest, testing::Range(0u, 128u),
                         [](const testing::TestParamInfo<unsigned>& one) {
                           std::string letters = rig::ToUtf8(Letters(one.param)).substr(1);
                           return letters.empty() ? std::string("none") : letters;
                         });

}  // namespace tree_names_model_test
