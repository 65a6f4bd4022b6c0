// A path's answers to `Query`: it stores in and reads from record buffers, offers a walker over an existing
// folder, and answers no other selectors.

#include "paths/path_query.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "files/dir_walker.h"
#include "unit/paths/path_tools.h"

namespace path_test {

using PathQueryTest = rig::InternalsTest;

// A record buffer that is freed at the end of its scope.
struct Record : RecordBuffer {
  Record() : RecordBuffer{} {}
  ~Record() { RecordBufferFree(this); }
  std::string Bytes() const { return std::string(bytes, size); }
  // Fills the buffer with exactly these bytes.
  void Fill(std::string_view content) {
    RecordBufferFree(this);
    if (content.empty()) return;
    memcpy(RecordBufferAppend(this, content.size()), content.data(), content.size());
  }
};

UINT_PTR Ask(PathObject* path, DWORD selector, UINT_PTR argument, void* record) {
  return rig::CallGuarded([&] { return path->ops.Query(path, selector, argument, record, "", 0); });
}

PathObject* Read(PathObject* path, UINT_PTR identifier, RecordBuffer* record) {
  return reinterpret_cast<PathObject*>(Ask(path, kQueryRead, identifier, record));
}

TEST_F(PathQueryTest, StoresOneEntry) {
  struct Case {
    const char* path;
    std::string entry;
  } cases[] = {
      {"C:\\x", std::string("\x44\x33\x22\x11xpth\0\0\0\x04"
                            "C:\\x",
                            16)},
      {"C:\\", std::string("\x44\x33\x22\x11xpth\0\0\0\x03"
                           "C:\\\0",
                           16)},
      {"C:", std::string("\x44\x33\x22\x11xpth\0\0\0\x02"
                         "C:\0\0",
                         16)},
      {"\\", std::string("\x44\x33\x22\x11xpth\0\0\0\x01\\\0\0\0", 16)},
      {"C:\\a|\\bc", std::string("\x44\x33\x22\x11xpth\0\0\0\x07"
                                 "C:\\a\\bc\0",
                                 20)},
      {"\\\xC3\xA9", std::string("\x44\x33\x22\x11xpth\0\0\0\x03\\\xC3\xA9\0", 16)},
  };
  for (const Case& c : cases) {
    Path path{std::string_view(c.path)};
    Record record;
    EXPECT_EQ(Ask(path.get(), kQueryStore, 0x11223344, &record), c.entry.size());
    EXPECT_EQ(record.Bytes(), c.entry) << c.path;
    EXPECT_EQ(record.position, 0u);
    EXPECT_EQ(path->refCount, 1);
  }
  Path path("C:\\x");
  EXPECT_EQ(Ask(path.get(), kQueryStore, 1, nullptr), 0u);
  EXPECT_EQ(path->ops.Query(nullptr, kQueryStore, 1, nullptr, "", 0), 0u);
}

TEST_F(PathQueryTest, LongTextStatesItsLengthHighestByteFirst) {
  std::string text = "C:\\" + std::string(0x12345 - 3, 'x');
  Path path(MakeCounted(nullptr, text));
  Record record;
  EXPECT_EQ(Ask(path.get(), kQueryStore, 7, &record), 12u + 0x12348);
  EXPECT_EQ(record.Bytes().substr(8, 4), std::string("\0\x01\x23\x45", 4));
  EXPECT_EQ(record.Bytes().substr(12, text.size()), text);
  EXPECT_EQ(record.Bytes().substr(12 + text.size()), std::string(3, '\0'));
}

TEST_F(PathQueryTest, EntriesFollowEachOtherAndAreReadInOrder) {
  Record record;
  Path any("\\any");
  std::vector<std::string> texts;
  for (unsigned i = 0; i < 200; ++i) {
    std::string name = "n" + std::string(i % 7, 'x') + std::to_string(i);
    Path path(MakeChain("\\\\server\\share|" + name));
    texts.push_back("\\\\server\\share\\" + name);
    size_t before = record.size;
    UINT_PTR taken = Ask(path.get(), kQueryStore, i + 1, &record);
    EXPECT_EQ(taken % 4, 0u);
    EXPECT_EQ(record.size, before + taken);
  }
  for (unsigned i = 0; i < 200; ++i) {
    size_t before = record.position;
    // Another identifier is refused and changes nothing; 0 and the right one are accepted.
    EXPECT_EQ(Read(any.get(), i + 2, &record), nullptr);
    EXPECT_EQ(record.position, before);
    Path path(Read(any.get(), i % 2 ? i + 1 : 0, &record));
    EXPECT_EQ(Nodes(path.get()), texts[i]);
    ASSERT_NE(path.get(), nullptr);
    EXPECT_EQ(path->refCount, 1);
    EXPECT_GT(record.position, before);
  }
  EXPECT_EQ(record.position, record.size);
  EXPECT_EQ(Read(any.get(), 0, &record), nullptr);
}

TEST_F(PathQueryTest, WhatIsReadIsExactlyWhatWasStored) {
  // Also texts that PathMake would change.
  for (const char* text : {".", "..x", "C:", "C:\\", "\\\\", "x\\.\\"}) {
    Path path{std::string_view(text)};
    Record record;
    Ask(path.get(), kQueryStore, 1, &record);
    EXPECT_EQ(TakeNodes(Read(path.get(), 1, &record)), Nodes(path.get()));
  }
  Path path("C:\\x");
  Path link(PathAppendLnk(path.get()));
  Record record;
  Ask(link.get(), kQueryStore, 1, &record);
  EXPECT_EQ(TakeNodes(Read(path.get(), 1, &record)), std::string("C:\\x.lnk\0", 9));
  Path empty(PathMake(nullptr, nullptr, 0));
  EXPECT_EQ(Ask(empty.get(), kQueryStore, 1, &record), 12u);
  Path read(Read(path.get(), 1, &record));
  ASSERT_NE(read.get(), nullptr);
  EXPECT_EQ(read->length, 0);
}

TEST_F(PathQueryTest, BadEntriesGiveNull) {
  const std::string good(
      "\1\0\0\0xpth\0\0\0\x05"
      "C:\\ab\0\0\0",
      20);
  Path any("\\any");
  Record record;
  record.Fill(good);
  EXPECT_EQ(TakeNodes(Read(any.get(), 1, &record)), "C:\\ab");
  for (size_t length = 0; length < good.size(); ++length) {
    record.Fill(good.substr(0, length));
    EXPECT_EQ(Read(any.get(), 1, &record), nullptr) << length;
    EXPECT_EQ(record.position, 0u);
  }
  for (size_t i = 4; i < 12; ++i) {
    std::string bad = good;
    bad[i] = static_cast<char>(i < 11 ? bad[i] ^ 0x80 : 9);
    record.Fill(bad);
    EXPECT_EQ(Read(any.get(), 1, &record), nullptr) << i;
  }
  for (const char* length : {"\x7F\xFF\xFF\xFF", "\xFF\xFF\xFF\xFF", "\xFF\xFF\xFF\xFC", "\x80\0\0\0"}) {
    std::string bad = good;
    bad.replace(8, 4, length, 4);
    record.Fill(bad);
    EXPECT_EQ(Read(any.get(), 1, &record), nullptr);
  }
  record.Fill(good);
  for (size_t position : {size_t{1}, size_t{4}, size_t{20}, size_t{21}, SIZE_MAX}) {
    record.position = position;
    EXPECT_EQ(Read(any.get(), 0, &record), nullptr) << position;
    EXPECT_EQ(record.position, position);
  }
  // Bytes after the appended ones are not read either, although they look like an entry.
  record.Fill(good + good);
  record.size = 10;
  record.position = 20;
  EXPECT_EQ(Read(any.get(), 1, &record), nullptr);
  record.Fill(good);
  // All bits of the identifier are compared.
  EXPECT_EQ(Read(any.get(), UINT_PTR{1} << 32 | 1, &record), nullptr);
  EXPECT_EQ(Read(any.get(), 1, nullptr), nullptr);
  EXPECT_EQ(any->ops.Query(nullptr, kQueryRead, 1, &record, "", 0), 0u);
}

HX_INTERNAL(DirWalkerCreate);

TEST_F(PathQueryTest, AnExistingFolderOffersAWalker) {
  Path folder("C:\\");
  auto constructor = reinterpret_cast<UINT_PTR>(DirWalkerCreate.Get());
  EXPECT_EQ(Ask(folder.get(), kQueryWalker, 3, nullptr), constructor);
  for (UINT_PTR other : {UINT_PTR{0}, UINT_PTR{1}, UINT_PTR{2}, UINT_PTR{4}, UINT_PTR{1} << 32 | 3}) {
    EXPECT_EQ(Ask(folder.get(), kQueryWalker, other, nullptr), 0u);
  }
  DWORD attributes = 0;
  std::vector<std::wstring> asked;
  rig::ImportHook<&::GetFileAttributesW> hook("GetFileAttributesW", [&](const wchar_t* name) {
    asked.push_back(name);
    return attributes;
  });
  Path path("C:\\Data|\\x");
  EXPECT_EQ(Ask(path.get(), kQueryWalker, 3, nullptr), 0u);
  attributes = INVALID_FILE_ATTRIBUTES;
  EXPECT_EQ(Ask(path.get(), kQueryWalker, 3, nullptr), 0u);
  attributes = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN;
  EXPECT_EQ(Ask(path.get(), kQueryWalker, 3, nullptr), constructor);
  EXPECT_EQ(asked, std::vector<std::wstring>(3, L"C:\\Data\\x"));
}

TEST_F(PathQueryTest, OtherSelectorsGiveNull) {
  Path path("C:\\");
  Record record;
  for (DWORD selector : {DWORD{2}, DWORD{3}, kQueryPrintableText, kPathTag, kPathEntryTag, ~DWORD{0}}) {
    unsigned length = 77;
    EXPECT_EQ(Ask(path.get(), selector, 0, &length), 0u);
    EXPECT_EQ(length, 77u);
    EXPECT_EQ(Ask(path.get(), selector, 3, &record), 0u);
    EXPECT_EQ(Ask(path.get(), selector, 0, nullptr), 0u);
  }
  EXPECT_EQ(record.size, 0u);
}

TEST_F(PathQueryTest, TheBufferIsUnchangedIfItCannotGrow) {
  Record record;
  char* first = RecordBufferAppend(&record, 4);
  memcpy(first, "keep", 4);
  {
    HX_HOOK(heap, HeapAlloc, [](HANDLE, DWORD, SIZE_T) -> LPVOID { return nullptr; });
    EXPECT_EQ(RecordBufferAppend(&record, 100000), nullptr);
    EXPECT_EQ(record.Bytes(), "keep");
    EXPECT_EQ(RecordBufferAppend(&record, SIZE_MAX - 2), nullptr);
    // What still fits needs no memory.
    ASSERT_NE(RecordBufferAppend(&record, 4), nullptr);
  }
  char* large = RecordBufferAppend(&record, 100000);
  ASSERT_NE(large, nullptr);
  EXPECT_EQ(record.size, 100008u);
  EXPECT_EQ(record.Bytes().substr(0, 8), std::string("keep\0\0\0\0", 8));
  EXPECT_EQ(std::string(large, 100000), std::string(100000, '\0'));
  RecordBufferFree(&record);
  EXPECT_EQ(record.bytes, nullptr);
  EXPECT_EQ(record.size + record.capacity + record.position, 0u);
}

}  // namespace path_test
