// Conversions and comparisons of paths: flattening, wide text, the object's own operations, order, common
// ancestors.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "paths/path.h"
#include "unit/paths/path_tools.h"

namespace path_test {

using PathTextTest = rig::InternalsTest;

// Nodes whose texts PathMake would not produce: filled by hand.
PathObject* MakeRaw(PathObject* parent, std::string_view text) {
  PathObject* node = PathMake(parent, nullptr, static_cast<int>(text.size()));
  memcpy(node->text, text.data(), text.size());
  return node;
}

PathObject* MakeRawChain(const std::vector<std::string>& texts) {
  PathObject* path = nullptr;
  for (const std::string& text : texts) {
    PathObject* next = MakeRaw(path, text);
    Release(path);
    path = next;
  }
  return path;
}

struct ChainCase {
  std::vector<std::string> nodes;
  const char* text;
  const wchar_t* wide;
};

const ChainCase kChains[] = {
    {{"C:\\Data"}, "C:\\Data", L"C:\\Data"},
    {{"C:\\Data", "\\x"}, "C:\\Data\\x", L"C:\\Data\\x"},
    {{"\\\\server\\share", "\\Data", "\\x\\y"},
     "\\\\server\\share\\Data\\x\\y",
     L"\\\\server\\share\\Data\\x\\y"},
    // At a seam only one backslash is kept.
    {{"\\", "\\x"}, "\\x", L"\\x"},
    {{"C:\\", "\\x"}, "C:\\x", L"C:\\x"},
    {{"\\a\\", "\\b\\", "\\c"}, "\\a\\b\\c", L"\\a\\b\\c"},
    {{"\\a", "\\", "\\b"}, "\\a\\b", L"\\a\\b"},
    {{"\\a", "\\", "\\", "\\b"}, "\\a\\b", L"\\a\\b"},
    {{"\\", "\\"}, "\\", L"\\"},
    // One byte is dropped, not all.
    {{"\\a\\\\", "\\b"}, "\\a\\\\b", L"\\a\\\\b"},
    {{"\\a\\", "\\\\b"}, "\\a\\\\b", L"\\a\\\\b"},
    // Nothing is dropped if one of the two backslashes is missing.
    {{"\\a\\", "b"}, "\\a\\b", L"\\a\\b"},
    {{"\\a", "b"}, "\\ab", L"\\ab"},
    // Nodes without text are ignored.
    {{"\\a\\", "", "\\b"}, "\\a\\b", L"\\a\\b"},
    {{"", "\\b"}, "\\b", L"\\b"},
    {{"\\a", ""}, "\\a", L"\\a"},
    // A bare drive.
    {{"C:"}, "C:", L"C:\\"},
    {{"C", ":"}, "C:", L"C:\\"},
    {{"C:", ""}, "C:", L"C:\\"},
    {{"C:\\"}, "C:\\", L"C:\\"},
    {{"C:", "\\x"}, "C:\\x", L"C:\\x"},
    {{"CD"}, "CD", L"CD"},
    {{"C:x"}, "C:x", L"C:x"},
    {{"\\"}, "\\", L"\\"},
    // Characters outside ASCII and outside the basic plane; bytes that are not UTF-8.
    {{"\\\xC3\xA9", "\\\xE2\x82\xAC\\", "\\\xF0\x9F\x98\x80z"},
     "\\\xC3\xA9\\\xE2\x82\xAC\\\xF0\x9F\x98\x80z",
     L"\\\xE9\\\x20AC\\\xD83D\xDE00z"},
    {{"\\a\xFF", "\\b"}, "\\a\xFF\\b", L"\\a\xFFFD\\b"},
};

TEST_F(PathTextTest, FlattensAndConverts) {
  for (const ChainCase& c : kChains) {
    SCOPED_TRACE(c.text);
    Path path(MakeRawChain(c.nodes));
    std::string text = c.text;
    std::wstring wide = c.wide;

    Path flat(PathFlatten(path.get()));
    EXPECT_EQ(Nodes(flat.get()), text);
    if (c.nodes.size() == 1) {
      EXPECT_EQ(flat.get(), path.get());
      EXPECT_EQ(path->refCount, 2);
    } else {
      EXPECT_NE(flat.get(), path.get());
      EXPECT_EQ(path->refCount, 1);
    }
    EXPECT_EQ(TakeWide(PathToWide(path.get())), wide);
    EXPECT_EQ(Text(path.get()), text);

    unsigned whole = static_cast<unsigned>(text.size());
    for (unsigned room = 0; room <= whole + 2; ++room) {
      GuardedBuffer buffer(room);
      unsigned expected = room < whole ? room : whole;
      // Precision, position and conversion are ignored.
      EXPECT_EQ(path->ops.CopyText(path.get(), buffer.Data(), room, 1, nullptr, 0), expected);
      EXPECT_EQ(std::string(buffer.Data(), expected), text.substr(0, expected));
      for (unsigned i = expected; i < room; ++i)
        EXPECT_EQ(static_cast<unsigned char>(buffer.Data()[i]), 0xCD);
    }

    EXPECT_EQ(PathCopyToBuffer(path.get(), nullptr, 0), wide.size());
    EXPECT_EQ(PathCopyToBuffer(path.get(), nullptr, 3), wide.size());
    for (unsigned capacity = 0; capacity <= wide.size() + 3; ++capacity) {
      GuardedBuffer buffer(capacity * sizeof(wchar_t));
      size_t expected = capacity == 0 ? 0 : std::min<size_t>(capacity - 1, wide.size());
      EXPECT_EQ(PathCopyToBuffer(path.get(), buffer.As<wchar_t>(), capacity), expected);
      if (capacity) EXPECT_EQ(std::wstring(buffer.As<wchar_t>()), wide.substr(0, expected));
    }
  }
}

TEST_F(PathTextTest, NullAndEmptyPaths) {
  EXPECT_EQ(PathFlatten(nullptr), nullptr);
  EXPECT_EQ(PathToWide(nullptr), nullptr);
  wchar_t buffer[4] = {L'x', L'x', L'x', L'x'};
  EXPECT_EQ(PathCopyToBuffer(nullptr, buffer, 4), 0u);
  EXPECT_EQ(buffer[0], L'\0');
  EXPECT_EQ(buffer[1], L'x');
  buffer[0] = L'x';
  EXPECT_EQ(PathCopyToBuffer(nullptr, buffer, 0), 0u);
  EXPECT_EQ(buffer[0], L'x');
  EXPECT_EQ(PathCopyToBuffer(nullptr, nullptr, 0), 0u);

  Path empty(MakeRawChain({"", ""}));
  EXPECT_EQ(PathToWide(empty.get()), nullptr);
  EXPECT_EQ(PathCopyToBuffer(empty.get(), buffer, 4), 0u);
  EXPECT_EQ(buffer[0], L'\0');
  EXPECT_EQ(PathCopyToBuffer(empty.get(), nullptr, 0), 0u);
  EXPECT_EQ(Text(empty.get()), "");
  Path flat(PathFlatten(empty.get()));
  EXPECT_EQ(Nodes(flat.get()), "");
  auto ops = empty->ops;
  EXPECT_EQ(ops.CopyText(nullptr, nullptr, 0, -1, "", 'O'), 0u);
  EXPECT_EQ(ops.Compare(nullptr, empty.get()), 0);
  EXPECT_EQ(ops.Compare(empty.get(), nullptr), 0);
  EXPECT_EQ(ops.Compare(nullptr, nullptr), 0);
}

TEST_F(PathTextTest, AJoinOntoABareDrive) {
  Path drive("C:");
  EXPECT_EQ(TakeWide(PathToWide(drive.get())), L"C:\\");
  EXPECT_EQ(TakeWideOf(MakeCounted(drive.get(), "Data")), L"C:\\Data");
}

TEST_F(PathTextTest, ConversionUsesTheRightSizesFromTheLastNodeOn) {
  std::vector<SIZE_T> sizes;
  std::vector<std::tuple<UINT, DWORD, std::string, int>> asked;
  Path path(MakeRawChain({"\\\xC3\xA9\\", "\\two", "\\\xE2\x82\xAC"}));
  HX_HOOK(heap, HeapAlloc, [&](HANDLE process, DWORD flags, SIZE_T size) {
    sizes.push_back(size);
    return heap.Next(process, flags, size);
  });
  HX_HOOK(convert, MultiByteToWideChar,
          [&](UINT page, DWORD flags, LPCCH text, int length, LPWSTR buffer, int room) {
            asked.emplace_back(page, flags, std::string(text, length), room);
            return convert.Next(page, flags, text, length, buffer, room);
          });
  EXPECT_EQ(TakeWide(PathToWide(path.get())), L"\\\xE9\\two\\\x20AC");
  EXPECT_EQ(sizes, std::vector<SIZE_T>{4 * (4 + 4 + 4) + 8});
  // ASCII needs no conversion, and of a doubled backslash only one is converted.
  EXPECT_EQ(asked, (std::vector<std::tuple<UINT, DWORD, std::string, int>>{{CP_UTF8, 0, "\\\xE2\x82\xAC", 4},
                                                                           {CP_UTF8, 0, "\\\xC3\xA9", 3}}));
}

TEST_F(PathTextTest, ConvertsANonAsciiByteAtEveryPlaceOfEveryLength) {
  for (size_t length = 1; length <= 36; ++length) {
    std::string ascii = "\\";
    for (size_t i = 1; i < length; ++i) ascii += static_cast<char>(' ' + i);
    ascii += '\x7F';
    Path plain(MakeRawChain({"\\odd", ascii}));
    EXPECT_EQ(TakeWide(PathToWide(plain.get())), L"\\odd" + std::wstring(ascii.begin(), ascii.end()));
    for (size_t place = 1; place <= length; ++place) {
      Path path(MakeRawChain({ascii.substr(0, place) + "\xC3\xA9" + ascii.substr(place)}));
      std::wstring expected(ascii.begin(), ascii.end());
      EXPECT_EQ(TakeWide(PathToWide(path.get())), expected.insert(place, L"\xE9"));
    }
  }
}

TEST_F(PathTextTest, TotalsThatOverflowCannotBeConverted) {
  Path root("\\x");
  Path leaf(MakeCounted(root.get(), "y"));
  root->length = INT_MAX - 20;
  leaf->length = 100;
  EXPECT_EQ(PathFlatten(leaf.get()), nullptr);
  EXPECT_EQ(PathToWide(leaf.get()), nullptr);
  EXPECT_EQ(PathCopyToBuffer(leaf.get(), nullptr, 0), 0u);
  EXPECT_EQ(leaf->ops.CopyText(leaf.get(), nullptr, 0, -1, "", 'O'), 0u);
  // A sum that would be small again in 32 bits.
  Path below(MakeCounted(leaf.get(), "z"));
  root->length = INT_MAX - 20;
  leaf->length = INT_MAX - 20;
  below->length = 48;
  EXPECT_EQ(PathFlatten(below.get()), nullptr);
  EXPECT_EQ(PathToWide(below.get()), nullptr);
  root->length = 2;
  leaf->length = 2;
  below->length = 2;
}

TEST_F(PathTextTest, Order) {
  struct Case {
    std::vector<std::string> a, b;
    int expected;
  } cases[] = {
      // Roots: both without a parent.
      {{"C:\\a"}, {"C:\\A"}, 0},
      {{"C:\\a"}, {"C:\\b"}, -1},
      {{"C:\\B"}, {"C:\\a"}, 1},
      {{"C:\\a"}, {"C:\\ab"}, -1},
      // Different chains of the same text.
      {{"C:\\a", "\\b"}, {"C:\\a\\b"}, 0},
      {{"C:\\a", "\\b"}, {"C:\\A\\B"}, 0},
      {{"C:\\a\\b", "\\c"}, {"C:\\a", "\\b\\c"}, 0},
      {{"C:\\a", "\\b", "\\c"}, {"C:\\a\\b\\c"}, 0},
      {{"\\", "\\x"}, {"\\x"}, 0},
      {{"\\a\\", "\\b"}, {"\\a\\b"}, 0},
      {{"\\a\\", "", "\\b"}, {"\\a", "\\b"}, 0},
      // The leftmost difference decides, even if the lengths differ.
      {{"C:\\a", "\\z"}, {"C:\\b", "\\a"}, -1},
      {{"C:\\b", "\\a"}, {"C:\\a", "\\z"}, 1},
      {{"C:\\a", "\\x", "\\y"}, {"C:\\b", "\\x"}, -1},
      {{"C:\\b", "\\x"}, {"C:\\a", "\\x", "\\y"}, 1},
      {{"C:\\a\\c", "\\b"}, {"C:\\a", "\\b\\c"}, 1},
      {{"C:\\ab", "\\x"}, {"C:\\ac\\x"}, -1},
      // If nothing differs, the longer one comes later.
      {{"C:\\a", "\\b", "\\c"}, {"C:\\a\\b"}, 1},
      {{"C:\\a\\b"}, {"C:\\a", "\\b", "\\c"}, -1},
      {{"C:\\a", "\\b", "\\c"}, {"C:\\a"}, 1},
      {{"", ""}, {""}, 0},
      {{"", ""}, {"\\a", "\\b"}, -1},
      {{"\\a", "\\b"}, {"", ""}, 1},
  };
  for (const Case& c : cases) {
    Path a(MakeRawChain(c.a));
    Path b(MakeRawChain(c.b));
    SCOPED_TRACE(Nodes(a.get()) + " / " + Nodes(b.get()));
    EXPECT_EQ(a->ops.Compare(a.get(), b.get()), c.expected);
    EXPECT_EQ(a->ops.Compare(b.get(), a.get()), -c.expected);
    EXPECT_EQ(a->ops.Compare(a.get(), a.get()), 0);
  }
}

TEST_F(PathTextTest, OrderWithinAChainAndAmongSiblings) {
  Path folder("C:\\m");
  Path a(MakeCounted(folder.get(), "a"));
  Path b(MakeCounted(folder.get(), "B"));
  Path below(MakeCounted(a.get(), "x"));
  Path same(MakeCounted(folder.get(), "A"));
  auto compare = folder->ops.Compare;
  // A parent comes before its child whatever the texts are; the texts are not compared.
  int comparisons = 0;
  HX_HOOK(api, CompareStringA, [&](LCID locale, DWORD flags, LPCCH x, int lengthX, LPCCH y, int lengthY) {
    ++comparisons;
    return api.Next(locale, flags, x, lengthX, y, lengthY);
  });
  EXPECT_EQ(compare(folder.get(), a.get()), -1);
  EXPECT_EQ(compare(a.get(), folder.get()), 1);
  Path empty(PathMake(folder.get(), nullptr, 0));
  EXPECT_EQ(compare(folder.get(), empty.get()), -1);
  EXPECT_EQ(compare(empty.get(), folder.get()), 1);
  EXPECT_EQ(comparisons, 0);
  // Siblings compare their own texts only.
  EXPECT_EQ(compare(a.get(), b.get()), -1);
  EXPECT_EQ(compare(b.get(), a.get()), 1);
  EXPECT_EQ(compare(a.get(), same.get()), 0);
  EXPECT_EQ(comparisons, 3);
  // The walk ends where both sides reach the same node.
  EXPECT_EQ(compare(folder.get(), below.get()), -1);
  EXPECT_EQ(comparisons, 3);
  Path longer(MakeCounted(b.get(), "x"));
  EXPECT_EQ(compare(below.get(), longer.get()), -1);
  EXPECT_EQ(comparisons, 5);
}

TEST_F(PathTextTest, AFailedComparisonIsStillAnOrder) {
  Path a("C:\\a|\\b");
  Path b("C:\\a|\\c");
  Path root1("C:\\x");
  Path root2("C:\\y");
  HX_HOOK(api, CompareStringA, [](LCID, DWORD, LPCCH, int, LPCCH, int) { return 0; });
  EXPECT_EQ(a->ops.Compare(a.get(), b.get()), -1);
  EXPECT_EQ(a->ops.Compare(root1.get(), root2.get()), -1);
}

TEST_F(PathTextTest, CommonAncestors) {
  struct Case {
    const char* a;
    const char* b;
    const char* expected;  // nodes; "a" or "b" for the object itself; "(null)"
  } cases[] = {
      {"C:\\Data\\x", "C:\\Data\\y", "C:\\Data"},
      {"C:\\Data|\\x", "C:\\Data|\\y", "C:\\Data"},
      {"C:\\Data|\\x|\\1", "C:\\Data\\x\\2", "C:\\Data\\x"},
      // Identical text in different objects: the folder that holds it.
      {"C:\\Data\\x", "C:\\Data\\x", "C:\\Data"},
      {"C:\\Data|\\x", "C:\\Data\\x", "C:\\Data"},
      {"C:\\Data", "C:\\Data", "C:"},
      {"\\x", "\\x", "(null)"},
      {"C:\\", "C:\\", "C:"},
      {"C:", "C:", "(null)"},
      // One inside the other.
      {"C:\\Data", "C:\\Data\\x", "a"},
      {"C:\\Data|\\x", "C:\\Data", "b"},
      {"C:\\data", "C:\\DATA\\x", "a"},
      {"C:", "C:\\x", "a"},
      {"C:\\x", "C:", "b"},
      // A root "C:\" is cut back like any other text.
      {"C:\\", "C:\\Data", "C:"},
      // Whole names only.
      {"C:\\Data", "C:\\Database", "C:"},
      {"C:\\Data\\one", "C:\\Data\\once", "C:\\Data"},
      {"C:\\Data", "C:\\Dust", "C:"},
      {"C:\\a", "D:\\a", "(null)"},
      {"\\a", "\\b", "(null)"},
      {"\\a\\x", "\\b\\x", "(null)"},
      {"\\\\server\\a", "\\\\server\\b", "\\\\server"},
      {"\\\\one\\a", "\\\\two\\a", "\\"},
      // Only ASCII letters are folded; the spelling is that of `a`.
      {"c:\\dAtA\\x", "C:\\DaTa\\y", "c:\\dAtA"},
      {"C:\\\xC3\xA9\\x", "C:\\\xC3\x89\\x", "C:"},
      {"C:\\[\\x", "C:\\{\\x", "C:"},
      {"C:\\@\\x", "C:\\`\\x", "C:"},
      {"C:\\z\\x", "C:\\Z\\y", "C:\\z"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.a) + " / " + c.b);
    Path a{std::string_view(c.a)};
    Path b{std::string_view(c.b)};
    Path ancestor(PathCommonAncestor(a.get(), b.get()));
    std::string_view expected = c.expected;
    if (expected == "a") {
      EXPECT_EQ(ancestor.get(), a.get());
      EXPECT_EQ(a->refCount, 2);
    } else if (expected == "b") {
      EXPECT_EQ(ancestor.get(), b.get());
      EXPECT_EQ(b->refCount, 2);
    } else {
      EXPECT_EQ(Nodes(ancestor.get()), expected);
      if (ancestor.get()) EXPECT_EQ(ancestor->parent, nullptr);
      EXPECT_EQ(a->refCount, 1);
      EXPECT_EQ(b->refCount, 1);
    }
  }
  Path path("C:\\Data|\\x");
  Path itself(PathCommonAncestor(path.get(), path.get()));
  EXPECT_EQ(itself.get(), path.get());
  EXPECT_EQ(path->refCount, 2);
  EXPECT_EQ(PathCommonAncestor(nullptr, path.get()), nullptr);
  EXPECT_EQ(PathCommonAncestor(path.get(), nullptr), nullptr);
  EXPECT_EQ(PathCommonAncestor(nullptr, nullptr), nullptr);
}

}  // namespace path_test
