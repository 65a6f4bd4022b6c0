// Making paths: every step of PathMake for every kind of input, the lifetime of nodes, and ".lnk".

#include "paths/path.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "unit/paths/path_tools.h"

namespace path_test {

using PathTest = rig::InternalsTest;

TEST_F(PathTest, MakesNodes) {
  struct Case {
    const char* parent;  // nodes, or "" for none
    const char* text;
    const char* expected;  // nodes; "=" for the parent itself; "(null)"
  } cases[] = {
      // Roots.
      {"", "C:\\Data", "C:\\Data"},
      {"", "C:\\Data\\", "C:\\Data"},
      {"", "C:\\Data\\\\", "C:\\Data\\"},
      {"", "C:\\", "C:\\"},
      {"", "c:\\", "c:\\"},
      {"", "C:", "C:"},
      {"", "z:", "z:"},
      {"", "C:\\\\", "C:\\"},
      {"", "C:\\.", "C:"},
      {"", "C:\\x\\.", "C:\\x"},
      {"", "C:x", "\\C:x"},
      {"", "C", "\\C"},
      {"", "C:\\a\\..\\b", "C:\\a\\..\\b"},
      {"", "1:\\x", "\\1:\\x"},
      {"", "@:\\x", "\\@:\\x"},
      {"", "[:", "\\[:"},
      {"", "`:\\x", "\\`:\\x"},
      {"", "{:\\x", "\\{:\\x"},
      {"", "A:\\x", "A:\\x"},
      {"", "Z:\\x", "Z:\\x"},
      {"", "a:\\x", "a:\\x"},
      {"", "foo", "\\foo"},
      {"", "\\foo", "\\foo"},
      {"", "foo\\", "\\foo"},
      {"", "foo\\bar", "\\foo\\bar"},
      {"", "\\\\server\\share", "\\\\server\\share"},
      {"", "\\\\server\\share\\", "\\\\server\\share"},
      {"", "\\\\", "\\"},
      {"", "\\", "\\"},
      {"", "", "\\"},
      {"", ".", "\\."},
      {"", ".\\", "\\."},
      {"", ".\\x", "\\.\\x"},
      {"", "\\.\\x", "\\.\\x"},
      {"", "\\.", "(null)"},
      {"", "\\.\\", "\\."},
      {"", "x\\.", "\\x"},
      {"", "x\\.\\", "\\x\\."},
      {"", "x\\.\\.", "\\x\\."},
      {"", "x.", "\\x."},
      {"", "\\\\.", "\\"},
      {"", "x\\\\.", "\\x"},
      {"", "..", "(null)"},
      {"", "..\\", "(null)"},
      {"", "..\\x", "(null)"},
      {"", "..x", "\\..x"},
      {"", "...", "\\..."},
      {"", "\\..", "\\.."},
      {"", "x\\..", "\\x\\.."},
      // On a parent.
      {"C:\\Data", "x", "C:\\Data|\\x"},
      {"C:\\Data", "\\x", "C:\\Data|\\x"},
      {"C:\\Data", "\\\\x", "C:\\Data|\\\\x"},
      {"C:\\Data", "x\\", "C:\\Data|\\x"},
      {"C:\\Data", "x\\\\", "C:\\Data|\\x"},
      {"C:\\Data", "x\\\\\\", "C:\\Data|\\x\\"},
      {"C:\\Data", "x\\y", "C:\\Data|\\x\\y"},
      {"C:\\Data", "", "="},
      {"C:\\Data", ".", "="},
      {"C:\\Data", "\\.", "="},
      {"C:\\Data", ".\\", "="},
      {"C:\\Data", "\\.\\", "="},
      {"C:\\Data", "\\", "="},
      {"C:\\Data", "\\\\", "C:\\Data|\\"},
      {"C:\\Data", ".\\\\", "C:\\Data|\\"},
      {"C:\\Data", ".\\x", "C:\\Data|\\x"},
      {"C:\\Data", "\\.\\x", "C:\\Data|\\x"},
      {"C:\\Data", ".\\.\\x", "C:\\Data|\\x"},
      {"C:\\Data", "\\.\\.\\x", "C:\\Data|\\.\\x"},
      {"C:\\Data", ".\\.", "="},
      {"C:\\Data", ".\\.\\", "="},
      {"C:\\Data", "\\.\\.", "="},
      {"C:\\Data", ".\\.\\.", "="},
      {"C:\\Data", "\\.\\.\\", "="},
      {"C:\\Data", ".\\.\\.\\", "="},
      {"C:\\Data", "\\.\\.\\.", "C:\\Data|\\."},
      {"C:\\Data", "x\\.", "C:\\Data|\\x"},
      {"C:\\Data", "x\\.\\", "C:\\Data|\\x"},
      {"C:\\Data", "x\\.\\.", "C:\\Data|\\x\\."},
      {"C:\\Data", ".x", "C:\\Data|\\.x"},
      {"C:\\Data", "..", "(null)"},
      {"C:\\Data", "..\\", "(null)"},
      {"C:\\Data", "..\\x", "(null)"},
      {"C:\\Data", "..x", "C:\\Data|\\..x"},
      // The given text is checked only once: what is cut off afterwards makes no difference.
      {"C:\\Data", ".\\..", "C:\\Data|\\.."},
      {"C:\\Data", "\\..", "C:\\Data|\\.."},
      // On a parent a drive has no meaning.
      {"C:\\Data", "D:\\x", "C:\\Data|\\D:\\x"},
      {"C:\\Data", "D:", "C:\\Data|\\D:"},
      {"C:\\Data", "D:\\", "C:\\Data|\\D:"},
      {"\\\\server\\share", "Data", "\\\\server\\share|\\Data"},
      {"\\", "x", "\\|\\x"},
      {"\\s\\t|\\a", "b", "\\s\\t|\\a|\\b"},
      // A root of exactly "X:\" is absorbed; no other parent is.
      {"C:\\", "Data", "C:\\Data"},
      {"C:\\", "\\Data", "C:\\Data"},
      {"C:\\", "Data\\", "C:\\Data"},
      {"C:\\", ".\\Data", "C:\\Data"},
      {"C:\\", "D:\\x", "C:\\D:\\x"},
      {"C:\\", "D:", "C:\\D:"},
      {"C:\\", "", "="},
      {"C:\\", "\\", "="},
      {"C:\\", ".", "="},
      {"C:\\", "\\.\\", "="},
      {"C:\\", ".\\.", "="},
      {"C:\\", "\\\\", "C:\\"},
      {"C:\\", "..", "(null)"},
      {"C:", "Data", "C:|\\Data"},
      {"C:", "", "="},
      {"\\C:", "Data", "\\C:|\\Data"},
      {"\\ab", "Data", "\\ab|\\Data"},
      // Non-ASCII text.
      {"C:\\", "\xC3\xA9\xF0\x9F\x98\x80", "C:\\\xC3\xA9\xF0\x9F\x98\x80"},
      {"", "\xC3\xA9", "\\\xC3\xA9"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.parent) + " + " + c.text);
    Path parent{std::string_view(c.parent)};
    std::string parentNodes = Nodes(parent.get());
    std::string expected = std::string_view(c.expected) == "=" ? parentNodes : c.expected;
    LONG references = parent.get() ? parent->refCount : 0;

    PathObject* counted = MakeCounted(parent.get(), c.text);
    EXPECT_EQ(Nodes(counted), expected);
    if (std::string_view(c.expected) == "=") EXPECT_EQ(counted, parent.get());
    if (parent.get() && counted) {
      bool holdsParent = counted == parent.get() || counted->parent == parent.get();
      EXPECT_EQ(parent->refCount, references + (holdsParent ? 1 : 0));
    }
    Release(counted);

    GuardedBuffer terminated = GuardedBuffer::Of(std::string_view(c.text));
    EXPECT_EQ(TakeNodes(PathMake(parent.get(), terminated.Data(), -1)), expected);
    EXPECT_EQ(TakeNodes(PathMake(parent.get(), terminated.Data(), INT_MIN)), expected);

    // A length shorter than the text.
    std::string longer = std::string(c.text) + "..\\.\\rest";
    EXPECT_EQ(TakeNodes(PathMake(parent.get(), longer.c_str(), static_cast<int>(strlen(c.text)))), expected);
    if (parent.get()) EXPECT_EQ(parent->refCount, references);
  }
}

TEST_F(PathTest, TextBuffersAreAsLargeAsPromised) {
  struct Case {
    const char* parent;
    const char* text;
    SIZE_T room;
  } cases[] = {
      // Two bytes more than the text that remains when the node is made, plus the drive.
      {"", "foo", 5},     {"", "C:\\Data\\", 10},   {"C:\\Data", "foo\\", 5},
      {"C:\\", "foo", 7}, {"C:\\", ".\\foo\\.", 8}, {"", "", 2},
  };
  for (const Case& c : cases) {
    Path parent{std::string_view(c.parent)};
    std::vector<SIZE_T> sizes;
    HX_HOOK(heap, HeapAlloc, [&](HANDLE process, DWORD flags, SIZE_T size) {
      EXPECT_EQ(flags, DWORD{HEAP_ZERO_MEMORY});
      sizes.push_back(size);
      return heap.Next(process, flags, size);
    });
    Release(MakeCounted(parent.get(), c.text));
    EXPECT_EQ(sizes, (std::vector<SIZE_T>{sizeof(PathObject), c.room})) << c.parent << " + " << c.text;
  }
}

TEST_F(PathTest, TheLayoutOfANodeIsFixed) {
  Path path("C:\\x|\\y");
  // Measured in a node, because offsetof is not meant for a type with a base.
  auto place = [start = reinterpret_cast<const volatile char*>(path.get())](const volatile auto& field) {
    return reinterpret_cast<const volatile char*>(&field) - start;
  };
  EXPECT_EQ(place(path->refCount), 0);
  EXPECT_EQ(place(path->typeTag), 4);
  EXPECT_EQ(place(path->ops), 8);
  EXPECT_EQ(place(path->parent), 48);
  EXPECT_EQ(place(path->length), 56);
  EXPECT_EQ(place(path->text), 64);
  EXPECT_EQ(memcmp(&path->typeTag, "\\:*/", 4), 0);
  EXPECT_EQ(memcmp(&path->ops, &path->parent->ops, sizeof path->ops), 0);
  EXPECT_NE(path->ops.Retain, nullptr);
  EXPECT_NE(path->ops.Release, nullptr);
  EXPECT_NE(path->ops.Compare, nullptr);
  EXPECT_NE(path->ops.CopyText, nullptr);
  EXPECT_NE(path->ops.Query, nullptr);
}

TEST_F(PathTest, NullTextReservesZeroBytes) {
  EXPECT_EQ(PathMake(nullptr, nullptr, -1), nullptr);
  EXPECT_EQ(PathMake(nullptr, nullptr, INT_MIN), nullptr);
  Path parent("C:\\");
  EXPECT_EQ(PathMake(parent.get(), nullptr, -1), nullptr);
  for (int length : {0, 1, 2, 100}) {
    Path root(PathMake(nullptr, nullptr, length));
    EXPECT_EQ(Nodes(root.get()), std::string(static_cast<size_t>(length), '\0'));
    EXPECT_EQ(root->parent, nullptr);
    // No drive is absorbed: the parent is the given one.
    Path node(PathMake(parent.get(), nullptr, length));
    EXPECT_EQ(Nodes(node.get()), "C:\\|" + std::string(static_cast<size_t>(length), '\0'));
    EXPECT_EQ(node->parent, parent.get());
    EXPECT_EQ(parent->refCount, 2);
  }
}

TEST_F(PathTest, OnlyARootIsAbsorbed) {
  Path root("\\r");
  Path node(PathMake(root.get(), nullptr, 3));
  memcpy(node->text, "C:\\", 3);
  EXPECT_EQ(TakeNodes(MakeCounted(node.get(), "x")), "\\r|C:\\|\\x");
}

TEST_F(PathTest, LengthsThatAreTooLargeGiveNull) {
  Path parent("C:\\Data");
  EXPECT_EQ(PathMake(nullptr, "x", INT_MAX), nullptr);
  EXPECT_EQ(PathMake(parent.get(), "x", INT_MAX - 1), nullptr);
  EXPECT_EQ(PathMake(nullptr, nullptr, INT_MAX), nullptr);
  EXPECT_EQ(PathMake(parent.get(), nullptr, INT_MAX), nullptr);
  EXPECT_EQ(parent->refCount, 1);
}

TEST_F(PathTest, WideTextIsJoinedAsUtf8) {
  Path folder("C:\\Data");
  struct Case {
    const wchar_t* text;
    int length;
    const char* expected;
  } cases[] = {
      {L"\xE9\xD83D\xDE00", -1, "C:\\Data|\\\xC3\xA9\xF0\x9F\x98\x80"},
      {L"abc", 2, "C:\\Data|\\ab"},
      {L"abc", 0, "C:\\Data"},
      {L"", -1, "C:\\Data"},
      {L"..", -1, "(null)"},
      {L"..x", 2, "(null)"},
      {L"x\\", -1, "C:\\Data|\\x"},
      {L"*.*", -1, "C:\\Data|\\*.*"},
  };
  for (const Case& c : cases) {
    GuardedBuffer text = c.length < 0
                             ? GuardedBuffer::Of(std::wstring_view(c.text))
                             : GuardedBuffer::Of(std::wstring_view(c.text).substr(0, c.length), false);
    EXPECT_EQ(TakeNodes(PathJoinWide(folder.get(), text.As<wchar_t>(), c.length)), c.expected);
  }
  EXPECT_EQ(TakeNodes(PathJoinWide(nullptr, L"D:\\x", -1)), "D:\\x");
  EXPECT_EQ(PathJoinWide(folder.get(), nullptr, -1), nullptr);
  EXPECT_EQ(PathJoinWide(folder.get(), nullptr, 3), nullptr);
  EXPECT_EQ(folder->refCount, 1);
}

TEST_F(PathTest, RetainAndReleaseCount) {
  PathObject* path = Make("C:\\x");
  EXPECT_EQ(path->refCount, 1);
  EXPECT_EQ(path->ops.Retain(path), path);
  EXPECT_EQ(path->refCount, 2);
  EXPECT_EQ(path->ops.Retain(nullptr), nullptr);
  path->ops.Release(nullptr);
  Release(path);
  EXPECT_EQ(path->refCount, 1);
  EXPECT_EQ(LiveBlocks(), 2u);
  Release(path);
  EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(PathTest, TheLeafHoldsTheChain) {
  PathObject* root = Make("\\\\server\\share");
  PathObject* middle = MakeCounted(root, "a");
  PathObject* leaf = MakeCounted(middle, "b");
  PathObject* other = MakeCounted(middle, "c");
  Release(root);
  Release(middle);
  EXPECT_EQ(LiveBlocks(), 8u);
  EXPECT_EQ(middle->refCount, 2);
  Release(leaf);
  EXPECT_EQ(LiveBlocks(), 6u);
  EXPECT_EQ(middle->refCount, 1);
  EXPECT_EQ(Nodes(other), "\\\\server\\share|\\a|\\c");
  Release(other);
  EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(PathTest, ParentsAreFreedBeforeTheirChildrenAndWithClearedSlots) {
  PathObject* leaf = MakeChain("\\r|\\a|\\b");
  std::vector<const void*> expected;
  for (const PathObject* node : {leaf->parent->parent, leaf->parent, leaf}) {
    expected.push_back(node->text);
    expected.push_back(node);
  }
  std::vector<const void*> freed;
  HX_HOOK(heap, HeapFree, [&](HANDLE process, DWORD flags, LPVOID block) {
    EXPECT_EQ(flags, 0u);
    if (freed.size() % 2 == 1) {
      EXPECT_EQ(static_cast<PathObject*>(block)->ops.Retain, nullptr);
      EXPECT_EQ(static_cast<PathObject*>(block)->ops.Release, nullptr);
    }
    freed.push_back(block);
    return heap.Next(process, flags, block);
  });
  Release(leaf);
  EXPECT_EQ(freed, expected);
}

// A parent with another `Release` than the path's is released through its own.
int releasedParents;
TEST_F(PathTest, AParentIsReleasedThroughItself) {
  PathObject* root = Make("\\r");
  PathObject* leaf = MakeCounted(root, "a");
  auto own = root->ops.Release;
  releasedParents = 0;
  root->ops.Release = [](Object*) { ++releasedParents; };
  Release(leaf);
  EXPECT_EQ(releasedParents, 1);
  EXPECT_EQ(root->refCount, 2);
  EXPECT_EQ(LiveBlocks(), 2u);
  root->ops.Release = own;
  Release(root);
  Release(root);
}

TEST_F(PathTest, AReferenceCountBelowOneFreesOnce) {
  // As with the common Release: a count below 1 frees, not only 0.
  PathObject* path = Make("C:\\x");
  path->refCount = 0;
  Release(path);
  EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(PathTest, LongChainsNeedNoStack) {
  // The guarded heap would need two pages for each block, so these blocks come from the real process heap and
  // are counted.
  const HANDLE real = GetProcessHeap();
  ptrdiff_t live = 0;
  HX_HOOK(take, HeapAlloc, [&](HANDLE, DWORD flags, SIZE_T size) {
    ++live;
    return HeapAlloc(real, flags, size);
  });
  HX_HOOK(give, HeapFree, [&](HANDLE, DWORD flags, LPVOID block) {
    --live;
    return HeapFree(real, flags, block);
  });
  constexpr int kNodes = 100000;
  PathObject* path = Make("\\\\server\\share");
  PathObject* middle = nullptr;
  std::string expected = "\\\\server\\share";
  for (int i = 0; i < kNodes; ++i) {
    std::string name = std::to_string(i % 10);
    PathObject* next = PathMake(path, name.c_str(), -1);
    Release(path);
    path = next;
    expected += "\\" + name;
    if (i == kNodes / 2) middle = static_cast<PathObject*>(path->ops.Retain(path));
  }
  EXPECT_EQ(live, 2 * (kNodes + 1));
  PathObject* flat = PathFlatten(path);
  EXPECT_EQ(std::string(flat->text), expected);
  EXPECT_EQ(path->ops.CopyText(path, nullptr, 0, -1, "", 'O'), expected.size());
  EXPECT_EQ(TakeWide(PathToWide(path)), std::wstring(expected.begin(), expected.end()));
  EXPECT_EQ(path->ops.Compare(path, flat), 0);
  EXPECT_EQ(path->ops.Compare(middle, flat), -1);
  Release(flat);
  Release(path);
  EXPECT_EQ(live, 2 * (kNodes / 2 + 2));
  Release(middle);
  EXPECT_EQ(live, 0);
}

TEST_F(PathTest, LnkIsAppendedWithItsExactLength) {
  struct Case {
    const char* path;
    const char* text;
    std::wstring wide;
  } cases[] = {
      {"C:\\Data", "C:\\Data.lnk", L"C:\\Data.lnk"},
      {"\\\\s\\t|\\Server", "\\Server.lnk", L"\\\\s\\t\\Server.lnk"},
      {"C:\\", "C:\\.lnk", L"C:\\.lnk"},
      {"\\\\s\\t|\\\xF0\x9F\x98\x80", "\\\xF0\x9F\x98\x80.lnk", L"\\\\s\\t\\\xD83D\xDE00.lnk"},
  };
  for (const Case& c : cases) {
    Path path{std::string_view(c.path)};
    Path link(PathAppendLnk(path.get()));
    ASSERT_NE(link.get(), nullptr);
    EXPECT_STREQ(link->text, c.text);
    // One more than the visible text: the terminator counts.
    EXPECT_EQ(link->length, path->length + 5);
    EXPECT_EQ(static_cast<size_t>(link->length), strlen(c.text) + 1);
    EXPECT_EQ(link->parent, path->parent);
    EXPECT_EQ(TakeWide(PathToWide(link.get())), c.wide);
    EXPECT_EQ(PathCopyToBuffer(link.get(), nullptr, 0), c.wide.size());
    unsigned total = link->ops.CopyText(link.get(), nullptr, 0, -1, "", 'O');
    EXPECT_EQ(total, path->ops.CopyText(path.get(), nullptr, 0, -1, "", 'O') + 5);
    Path flat(PathFlatten(link.get()));
    EXPECT_EQ(static_cast<unsigned>(flat->length), total);
    EXPECT_EQ(TakeWide(PathToWide(flat.get())), c.wide);
  }
  EXPECT_EQ(PathAppendLnk(nullptr), nullptr);
}

TEST_F(PathTest, LnkTwiceIsVisiblyTwice) {
  Path path("\\\\s\\t|\\x");
  Path once(PathAppendLnk(path.get()));
  Path twice(PathAppendLnk(once.get()));
  EXPECT_EQ(TakeWide(PathToWide(twice.get())), L"\\\\s\\t\\x.lnk.lnk");
  EXPECT_EQ(twice->length, once->length + 5);
}

TEST_F(PathTest, LnkOfATextThatIsTooLongGivesNull) {
  Path path("\\x");
  LONG length = path->length;
  path->length = INT_MAX - 2;
  EXPECT_EQ(PathAppendLnk(path.get()), nullptr);
  path->length = length;
}

}  // namespace path_test
