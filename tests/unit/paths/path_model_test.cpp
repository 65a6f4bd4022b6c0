// Path operations compared with a simple model on random inputs.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "paths/path.h"
#include "unit/paths/path_tools.h"

namespace path_test {
namespace {

// A node as a string and the node before it. The identity of a node matters, so nodes are compared as
// pointers.
struct Node {
  std::string text;
  std::shared_ptr<const Node> parent;
};
using Model = std::shared_ptr<const Node>;

bool IsLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
bool IsDriveText(const std::string& text) {
  return text.size() == 2 && IsLetter(text[0]) && text[1] == ':';
}
bool IsDriveRootText(const std::string& text) {
  return text.size() == 3 && IsDriveText(text.substr(0, 2)) && text[2] == '\\';
}

Model ModelMake(Model parent, std::string text) {
  static const std::set<std::string> kParentItself = {".", "\\.", ".\\", "\\.\\"};
  if (text == ".." || text.starts_with("..\\")) return nullptr;
  bool isJoin = parent != nullptr;
  if (isJoin && kParentItself.contains(text)) return parent;
  if (isJoin) {
    if (text.starts_with(".\\")) text = text.substr(1);
    if (text.starts_with("\\.\\")) text = "\\" + text.substr(3);
    if (text.ends_with("\\")) text.pop_back();
  }
  if (text == "\\.") return parent;
  if (text.ends_with("\\.")) text.resize(text.size() - 2);
  if (isJoin && text.empty()) return parent;
  bool keepsBackslash = !isJoin && IsDriveRootText(text);
  if (text.size() > 1 && text.ends_with("\\") && !keepsBackslash) text.pop_back();
  bool beginsWithDrive = IsDriveText(text) || IsDriveRootText(text.substr(0, 3));
  if (!text.starts_with("\\") && (isJoin || !beginsWithDrive)) text = "\\" + text;
  if (isJoin && !parent->parent && IsDriveRootText(parent->text)) {
    text = parent->text.substr(0, 2) + text;
    parent = nullptr;
  }
  return std::make_shared<Node>(Node{text, parent});
}

// The whole text, and the place in it where each node's part begins.
struct Whole {
  std::string text;
  std::vector<size_t> starts;
};

Whole ModelWhole(const Model& path) {
  std::vector<const Node*> nodes;
  for (const Node* node = path.get(); node; node = node->parent.get()) nodes.insert(nodes.begin(), node);
  Whole whole;
  for (const Node* node : nodes) {
    if (whole.text.ends_with("\\") && node->text.starts_with("\\")) whole.text.pop_back();
    whole.starts.push_back(whole.text.size());
    whole.text += node->text;
  }
  return whole;
}

std::string ModelText(const Model& path) {
  return ModelWhole(path).text;
}

// The part of a string that a reader sees: up to the terminator.
std::string Visible(const std::string& text) {
  return text.c_str();
}

// Converts well-formed UTF-8 to UTF-16.
std::wstring Decode(const std::string& text) {
  std::wstring wide;
  for (size_t i = 0; i < text.size();) {
    unsigned lead = static_cast<unsigned char>(text[i++]);
    int more = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    unsigned code = more == 0 ? lead : lead & (0x3Fu >> more);
    while (more--) code = code << 6 | (static_cast<unsigned char>(text[i++]) & 0x3F);
    if (code >= 0x10000) {
      wide += static_cast<wchar_t>(0xD800 + ((code - 0x10000) >> 10));
      wide += static_cast<wchar_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
    } else {
      wide += static_cast<wchar_t>(code);
    }
  }
  return wide;
}

std::wstring ModelWide(const Model& path) {
  std::wstring wide = Decode(Visible(ModelText(path)));
  if (wide.size() == 2 && wide[1] == L':' && wide[0] < 128 && IsLetter(static_cast<char>(wide[0])))
    wide += L'\\';
  return wide;
}

Model ModelLnk(const Model& path) {
  std::string text = Visible(path->text) + ".lnk";
  text.resize(path->text.size() + 5, '\0');
  return std::make_shared<Node>(Node{text, path->parent});
}

Model ModelReplaceLeaf(const Model& path, const std::string& name) {
  if (!path) return ModelMake(nullptr, name);
  std::string text = Visible(path->text);
  size_t leaf = text.rfind('\\');
  if (leaf == text.npos) return ModelMake(path, name);
  if (leaf == 0) return ModelMake(path->parent, name);
  Model folder = ModelMake(path->parent, text.substr(0, leaf));
  return folder ? ModelMake(folder, name) : nullptr;
}

Model ModelAncestor(const Model& a, const Model& b) {
  if (a == b) return a;
  auto fold = [](std::string text) {
    for (char& c : text) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
    return text;
  };
  std::string textA = Visible(ModelText(a));
  std::string textB = Visible(ModelText(b));
  std::string foldedA = fold(textA);
  std::string foldedB = fold(textB);
  if (foldedB.starts_with(foldedA + "\\") && !textA.empty()) return a;
  if (foldedA.starts_with(foldedB + "\\") && !textB.empty()) return b;
  size_t matched = 0;
  while (matched < std::min(textA.size(), textB.size()) && foldedA[matched] == foldedB[matched]) ++matched;
  size_t cut = textA.substr(0, matched).rfind('\\');
  if (cut == std::string::npos || cut == 0) return nullptr;
  return ModelMake(nullptr, textA.substr(0, cut));
}

int CompareStretch(const std::string& a, const std::string& b) {
  std::string visibleA = Visible(a);
  std::string visibleB = Visible(b);
  return CompareStringA(LOCALE_USER_DEFAULT, NORM_IGNORECASE | SORT_STRINGSORT, visibleA.c_str(), -1,
                        visibleB.c_str(), -1) -
         2;
}

int ModelCompare(const Model& a, const Model& b) {
  if (a == b) return 0;
  if (a == b->parent) return -1;
  if (b == a->parent) return 1;
  if (a->parent == b->parent) return CompareStretch(a->text, b->text);
  // From the left: the first different stretch between two seams of either path.
  Whole wholeA = ModelWhole(a);
  Whole wholeB = ModelWhole(b);
  size_t common = std::min(wholeA.text.size(), wholeB.text.size());
  std::set<size_t> seams = {0, common};
  for (const Whole* whole : {&wholeA, &wholeB}) {
    for (size_t start : whole->starts) {
      if (start < common) seams.insert(start);
    }
  }
  for (auto seam = seams.begin(); *seam < common; ++seam) {
    size_t length = *std::next(seam) - *seam;
    int order = CompareStretch(wholeA.text.substr(*seam, length), wholeB.text.substr(*seam, length));
    if (order) return order;
  }
  return wholeA.text.size() > common ? 1 : wholeB.text.size() > common ? -1 : 0;
}

unsigned ChosenSeed() {
  const char* given = std::getenv("HX_SEED");
  return given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device{}();
}

// A path and its expected value.
struct Pair {
  PathObject* path;
  Model model;
};

class PathModelTest : public rig::InternalsTest {
 protected:
  size_t Below(size_t limit) { return random_() % limit; }

  std::string RandomText() {
    static const char* const kParts[] = {
        "\\",  "\\",  "\\",   "\\",   ".",    ".",  "..", "a", "A", "b", "C:",          "C:\\",
        "d:",  "foo", "Data", "x.y",  "data", " ",  "+",  "é", "É", "€", "😀",          "\xF0\x90\x8C\xB0",
        "\\.", ".\\", "\\\\", "\\..", "1:\\", "~1", "a",  "",  "Z", "[", "longer name", "\xED\x9F\xBF",
    };
    std::string text;
    for (size_t count = Below(6); count > 0; --count) text += kParts[Below(std::size(kParts))];
    return text;
  }

  // Returns a random path of the pool, or null.
  Pair Pick(bool orNull) {
    if (pool_.empty() || (orNull && Below(4) == 0)) return {nullptr, nullptr};
    return pool_[Below(pool_.size())];
  }

  // Compares a new path with its model in every form and keeps it.
  void Keep(PathObject* path, const Model& model) {
    ASSERT_EQ(Nodes(path), ModelNodes(model));
    if (!path) return;
    std::string text = ModelText(model);
    ASSERT_EQ(Text(path), text);
    std::wstring wide = ModelWide(model);
    std::wstring given = TakeWide(PathToWide(path));
    ASSERT_EQ(given, text.empty() ? L"(null)" : wide);
    if (pool_.size() < 60) {
      pool_.push_back({path, model});
    } else {
      Pair& replaced = pool_[Below(pool_.size())];
      Release(replaced.path);
      replaced = {path, model};
    }
  }

  static std::string ModelNodes(const Model& model) {
    if (!model) return "(null)";
    std::string nodes;
    for (const Node* node = model.get(); node; node = node->parent.get()) {
      nodes = node == model.get() ? node->text : node->text + '|' + nodes;
    }
    return nodes;
  }

  void Step() {
    Pair a = Pick(true);
    // Paths must not grow without end.
    if (a.model && ModelText(a.model).size() > 200) a = {nullptr, nullptr};
    Pair b = Pick(false);
    std::string name = RandomText();
    switch (Below(9)) {
      default: {
        Model model = ModelMake(a.model, name);
        PathObject* path = MakeCounted(a.path, name);
        EXPECT_EQ(path == a.path, model == a.model);
        Keep(path, model);
        break;
      }
      case 1: {
        std::wstring wide = Decode(name);
        GuardedBuffer buffer = GuardedBuffer::Of(wide);
        Keep(PathJoinWide(a.path, buffer.As<wchar_t>(), -1), ModelMake(a.model, name));
        break;
      }
      case 2: {
        GuardedBuffer buffer = GuardedBuffer::Of(name);
        Keep(PathJoin(a.path, buffer.Data()), ModelMake(a.model, name));
        break;
      }
      case 3: {
        GuardedBuffer buffer = GuardedBuffer::Of(name);
        Keep(PathReplaceLeaf(a.path, buffer.Data()), ModelReplaceLeaf(a.model, name));
        break;
      }
      case 4:
        if (!a.path) break;
        Keep(PathAppendLnk(a.path), ModelLnk(a.model));
        break;
      case 5: {
        if (!a.path) break;
        PathObject* flat = PathFlatten(a.path);
        EXPECT_EQ(flat == a.path, a.path->parent == nullptr);
        Keep(flat, a.path->parent ? std::make_shared<Node>(Node{ModelText(a.model), nullptr}) : a.model);
        break;
      }
      case 6: {
        if (!a.path) break;
        PathObject* ancestor = PathCommonAncestor(a.path, b.path);
        Model model = ModelAncestor(a.model, b.model);
        EXPECT_EQ(ancestor == a.path, model == a.model);
        EXPECT_EQ(ancestor == b.path, model == b.model);
        Keep(ancestor, model);
        break;
      }
      case 7: {
        if (!a.path) break;
        EXPECT_EQ(a.path->ops.Compare(a.path, b.path), ModelCompare(a.model, b.model));
        EXPECT_EQ(a.path->ops.Compare(b.path, a.path), ModelCompare(b.model, a.model));
        break;
      }
      case 8: {
        if (!b.path) break;
        std::wstring wide = ModelWide(b.model);
        size_t capacity = Below(wide.size() + 3);
        GuardedBuffer buffer(capacity * sizeof(wchar_t));
        size_t expected = capacity == 0 ? 0 : std::min(capacity - 1, wide.size());
        EXPECT_EQ(PathCopyToBuffer(b.path, buffer.As<wchar_t>(), static_cast<unsigned>(capacity)), expected);
        if (capacity) EXPECT_EQ(std::wstring(buffer.As<wchar_t>()), wide.substr(0, expected));
        std::string text = ModelText(b.model);
        size_t room = Below(text.size() + 3);
        GuardedBuffer bytes(room);
        expected = std::min(room, text.size());
        EXPECT_EQ(b.path->ops.CopyText(b.path, bytes.Data(), static_cast<unsigned>(room), -1, "", 0),
                  expected);
        EXPECT_EQ(std::string(bytes.Data(), expected), text.substr(0, expected));
        RecordBuffer record = {};
        b.path->ops.Query(b.path, kQueryStore, 5, &record, "", 0);
        EXPECT_EQ(record.size, 12 + (text.size() + 3) / 4 * 4);
        auto* read = reinterpret_cast<PathObject*>(b.path->ops.Query(b.path, kQueryRead, 5, &record, "", 0));
        EXPECT_EQ(TakeNodes(read), text);
        RecordBufferFree(&record);
        break;
      }
    }
  }

  std::mt19937 random_;
  std::vector<Pair> pool_;
};

TEST_F(PathModelTest, RandomOperations) {
  constexpr int kSteps = 30000;
  unsigned seed = ChosenSeed();
  std::printf("seed %u (HX_SEED repeats a run)\n", seed);
  random_.seed(seed);
  // Nothing exists on the disk.
  HX_HOOK(find, FindFirstFileW, [](LPCWSTR, LPWIN32_FIND_DATAW) { return INVALID_HANDLE_VALUE; });
  for (int step = 0; step < kSteps; ++step) {
    Step();
    if (HasFailure()) {
      ADD_FAILURE() << "seed " << seed << ", step " << step;
      break;
    }
    // Now and then all paths are dropped at once, in any order.
    if (step % 5000 == 4999) {
      std::shuffle(pool_.begin(), pool_.end(), random_);
      for (Pair& pair : pool_) Release(pair.path);
      pool_.clear();
      EXPECT_EQ(LiveBlocks(), 0u);
    }
  }
  for (Pair& pair : pool_) Release(pair.path);
}

}  // namespace
}  // namespace path_test
