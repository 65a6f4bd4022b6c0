// Every system call of a path operation fails once: the operation returns null, 0 or the unchanged text, and
// releases everything.

#include <gtest/gtest.h>

#include <cwchar>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "paths/path.h"
#include "unit/paths/path_tools.h"

namespace path_test {

using PathFailureTest = rig::InternalsTest;

// The result of an operation as text; "null" for null.
std::string Gave(PathObject* path) {
  return path ? TakeNodes(path) : "null";
}
std::string Gave(wchar_t* text) {
  if (!text) return "null";
  std::wstring wide = TakeWide(text);
  return std::string(wide.begin(), wide.end());
}

struct Operation {
  const char* name;
  std::function<std::string()> run;
  const char* expected;     // if nothing fails
  const char* whenFailing;  // if memory or a conversion fails
  int calls = 0;            // at least this many calls can fail
};

class PathFailures : public PathFailureTest {
 protected:
  void SetUp() override {
    PathFailureTest::SetUp();
    path_ = MakeChain("\\\\s\\t|\\a|\\b");
    other_ = MakeChain("\\\\s\\t\\a|\\c");
    beyond_ = MakeChain("\\\\s\\t|\\\xC3\xA9");
    operations_ = {
        {"root", [&] { return Gave(PathMake(nullptr, "C:\\x", -1)); }, "C:\\x", "null", 2},
        {"child", [&] { return Gave(PathMake(path_, "x", -1)); }, "\\\\s\\t|\\a|\\b|\\x", "null", 2},
        {"reserve", [&] { return Gave(PathMake(path_, nullptr, 0)); }, "\\\\s\\t|\\a|\\b|", "null", 2},
        {"wide", [&] { return Gave(PathJoinWide(path_, L"x", -1)); }, "\\\\s\\t|\\a|\\b|\\x", "null", 2},
        {"from wide", [&] { return Gave(PathFromWide(L"C:\\Temp\\x")); }, "C:\\Temp\\x", "null", 2},
        {"completed", [&] { return Gave(PathFromWide(L"x")); }, "C:\\Full\\Path", "null", 2},
        {"completed twice", [&] { return Gave(PathFromWide(L"long")); }, "C:\\Full\\Path", "null", 2},
        {"from UTF-8", [&] { return Gave(PathFromUtf8("x")); }, "C:\\Full\\Path", "null", 2},
        {"pattern", [&] { return Gave(PathFromWide(L"C:\\*")); }, "C:\\*", "null", 2},
        {"join", [&] { return Gave(PathJoin(path_, "some name")); }, "\\\\s\\t|\\a|\\b|\\some name", "null",
         2},
        {"found", [&] { return Gave(PathJoin(path_, "found")); }, "\\\\s\\t|\\a|\\b|\\Found", "null", 2},
        {"leaf", [&] { return Gave(PathReplaceLeaf(other_, "found")); }, "\\\\s\\t\\a|\\Found", "null", 2},
        {"leaf in node", [&] { return Gave(PathReplaceLeaf(other_->parent, "x y")); }, "\\\\s\\t|\\x y",
         "null"},
        {"link", [&] { return Gave(PathAppendLnk(path_)).substr(0, 15); }, "\\\\s\\t|\\a|\\b.lnk", "null", 2},
        {"ancestor", [&] { return Gave(PathCommonAncestor(path_, other_)); }, "\\\\s\\t\\a", "null", 2},
        {"flat", [&] { return Gave(PathFlatten(path_)); }, "\\\\s\\t\\a\\b", "null", 2},
        {"to wide, beyond ASCII", [&] { return Gave(PathToWide(beyond_)); }, "\\\\s\\t\\\xE9", "null", 2},
        {"to wide", [&] { return Gave(PathToWide(path_)); }, "\\\\s\\t\\a\\b", "null", 1},
        {"to buffer",
         [&] {
           wchar_t buffer[20] = L"untouched";
           unsigned length = PathCopyToBuffer(path_, buffer, 20);
           EXPECT_EQ(wcslen(buffer), length);
           return std::to_string(length);
         },
         "9", "0", 1},
        {"text", [&] { return std::to_string(path_->ops.CopyText(path_, nullptr, 0, -1, "", 'O')); }, "9",
         "0"},
        {"store and read",
         [&] {
           RecordBuffer record = {};
           UINT_PTR taken = path_->ops.Query(path_, kQueryStore, 1, &record, "", 0);
           EXPECT_EQ(record.size, taken);
           auto* read = reinterpret_cast<PathObject*>(path_->ops.Query(path_, kQueryRead, 1, &record, "", 0));
           std::string gave = Gave(read);
           RecordBufferFree(&record);
           return gave;
         },
         "\\\\s\\t\\a\\b", "null", 2},
    };
  }
  void TearDown() override {
    EXPECT_EQ(path_->refCount, 1);
    EXPECT_EQ(other_->refCount, 1);
    Release(path_);
    Release(other_);
    Release(beyond_);
    PathFailureTest::TearDown();
  }

  PathObject* path_ = nullptr;
  PathObject* other_ = nullptr;
  PathObject* beyond_ = nullptr;
  std::vector<Operation> operations_;
};

TEST_F(PathFailures, EachCallFailsOnce) {
  int calls = 0;
  int failing = 0;
  bool hitLookup = false;
  auto isHit = [&] { return ++calls == failing; };
  HX_HOOK(take, HeapAlloc, [&](HANDLE process, DWORD flags, SIZE_T size) -> LPVOID {
    return isHit() ? nullptr : take.Next(process, flags, size);
  });
  HX_HOOK(grow, HeapReAlloc, [&](HANDLE process, DWORD flags, LPVOID block, SIZE_T size) -> LPVOID {
    return isHit() ? nullptr : grow.Next(process, flags, block, size);
  });
  HX_HOOK(toWide, MultiByteToWideChar,
          [&](UINT page, DWORD flags, LPCCH text, int length, LPWSTR buffer, int room) {
            return isHit() ? 0 : toWide.Next(page, flags, text, length, buffer, room);
          });
  HX_HOOK(toUtf8, WideCharToMultiByte,
          [&](UINT page, DWORD flags, LPCWCH text, int length, LPSTR buffer, int room, LPCCH standIn,
              LPBOOL used) {
            return isHit() ? 0 : toUtf8.Next(page, flags, text, length, buffer, room, standIn, used);
          });
  HX_HOOK(full, GetFullPathNameW, [&](LPCWSTR text, DWORD capacity, LPWSTR buffer, LPWSTR*) -> DWORD {
    if (isHit()) return 0;
    if (std::wstring_view(text) == L"long" && capacity < 2000) return 2000;
    wcscpy(buffer, L"C:\\Full\\Path");
    return 12;
  });
  int open = 0;
  HX_HOOK(find, FindFirstFileW, [&](LPCWSTR path, LPWIN32_FIND_DATAW found) -> HANDLE {
    if (isHit()) {
      hitLookup = true;
      return INVALID_HANDLE_VALUE;
    }
    std::wstring_view text = path;
    size_t leaf = text.rfind(L'\\');
    std::wstring name(text.substr(leaf + 1));
    if (name == L"found") name = L"Found";
    wcscpy(found->cFileName, name.c_str());
    found->cAlternateFileName[0] = 0;
    ++open;
    return reinterpret_cast<HANDLE>(0x4711);
  });
  HX_HOOK(close, FindClose, [&](HANDLE) {
    --open;
    return TRUE;
  });
  UINT mode = 7;
  HX_HOOK(setMode, SetErrorMode, [&](UINT value) { return std::exchange(mode, value); });

  for (const Operation& operation : operations_) {
    SCOPED_TRACE(operation.name);
    size_t before = LiveBlocks();
    calls = 0;
    failing = 0;
    EXPECT_EQ(operation.run(), operation.expected);
    const int total = calls;
    EXPECT_GE(total, operation.calls);
    for (int hit = 1; hit <= total; ++hit) {
      calls = 0;
      failing = hit;
      hitLookup = false;
      std::string gave = operation.run();
      if (hitLookup) {
        // If a look-up finds nothing, the name stays unchanged.
        std::string expected = operation.expected;
        if (size_t found = expected.find("Found"); found != expected.npos) expected[found] = 'f';
        EXPECT_EQ(gave, expected) << "call " << hit;
      } else {
        EXPECT_EQ(gave, operation.whenFailing) << "call " << hit;
      }
      EXPECT_EQ(LiveBlocks(), before) << "call " << hit;
      EXPECT_EQ(open, 0) << "call " << hit;
      EXPECT_EQ(mode, 7u) << "call " << hit;
    }
  }
}

}  // namespace path_test
