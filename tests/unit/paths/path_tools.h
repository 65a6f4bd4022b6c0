// Helpers for the tests of the path value: making paths from guarded text, checking their nodes, reading
// their text.
#pragma once

#include <string>
#include <string_view>

#include "base/heap.h"
#include "paths/path.h"
#include "paths/path_query.h"
#include "rig/import_hook.h"
#include "rig/internals_test.h"

namespace path_test {

HX_INTERNAL(PathMake);
HX_INTERNAL(PathJoinWide);
HX_INTERNAL(PathFromWide);
HX_INTERNAL(PathFromUtf8);
HX_INTERNAL(PathJoin);
HX_INTERNAL(PathFolder);
HX_INTERNAL(PathReplaceLeaf);
HX_INTERNAL(PathAppendLnk);
HX_INTERNAL(PathCommonAncestor);
HX_INTERNAL(PathFlatten);
HX_INTERNAL(PathToWide);
HX_INTERNAL(PathCopyToBuffer);
HX_INTERNAL(RecordBufferAppend);
HX_INTERNAL(RecordBufferFree);
HX_INTERNAL(HeapFreeSafe);

using rig::GuardedBuffer;

/// Drops one reference through the object.
inline void Release(PathObject* path) {
  if (path) rig::CallGuarded([&] { path->ops.Release(path); });
}

/// Calls PathMake with counted text that ends at unreadable memory.
inline PathObject* MakeCounted(PathObject* parent, std::string_view text) {
  GuardedBuffer buffer = GuardedBuffer::Of(text, false);
  return PathMake(parent, buffer.Data(), static_cast<int>(text.size()));
}

/// Calls PathMake with terminated text and without a parent.
inline PathObject* Make(std::string_view text) {
  GuardedBuffer buffer = GuardedBuffer::Of(text);
  return PathMake(nullptr, buffer.Data(), -1);
}

/// Makes a chain: one PathMake for each text between bars ("\\s\x|\y|\z"). An empty text gives null.
inline PathObject* MakeChain(std::string_view texts) {
  PathObject* path = nullptr;
  while (!texts.empty()) {
    size_t bar = texts.find('|');
    PathObject* next = MakeCounted(path, texts.substr(0, bar));
    Release(path);
    path = next;
    if (bar == texts.npos || !path) break;
    texts.remove_prefix(bar + 1);
  }
  return path;
}

/// Returns the texts of a path's nodes from the root down, with bars between them; "(null)" for null. Also
/// checks the terminator after each text and the header of each node.
inline std::string Nodes(const PathObject* path) {
  if (!path) return "(null)";
  std::string nodes;
  for (const PathObject* node = path; node; node = node->parent) {
    EXPECT_EQ(node->typeTag, 0x2F2A3A5Cu);
    EXPECT_GE(node->refCount, 1);
    EXPECT_EQ(node->text[node->length], '\0');
    std::string text(node->text, static_cast<size_t>(node->length));
    nodes = node == path ? text : text + '|' + nodes;
  }
  return nodes;
}

/// Returns the nodes of a path and releases it.
inline std::string TakeNodes(PathObject* path) {
  std::string nodes = Nodes(path);
  Release(path);
  return nodes;
}

/// Returns a wide string of the library and frees it; L"(null)" for null.
inline std::wstring TakeWide(wchar_t* text) {
  std::wstring copy = text ? text : L"(null)";
  HeapFreeSafe(text);
  return copy;
}

/// Returns the wide text of a path and releases it.
inline std::wstring TakeWideOf(PathObject* path) {
  std::wstring text = TakeWide(PathToWide(path));
  Release(path);
  return text;
}

/// Returns the path's text through its own operation.
inline std::string Text(PathObject* path) {
  unsigned length = path->ops.CopyText(path, nullptr, 0, -1, "", 'O');
  GuardedBuffer buffer(length);
  EXPECT_EQ(path->ops.CopyText(path, buffer.Data(), length, -1, "", 'O'), length);
  return std::string(buffer.Data(), length);
}

/// A path that is released at the end of its scope.
class Path {
 public:
  explicit Path(PathObject* path) : path_(path) {}
  /// Holds the path that MakeChain makes of `texts`.
  explicit Path(std::string_view texts) : path_(MakeChain(texts)) {}
  ~Path() { Release(path_); }
  Path(Path&& other) noexcept : path_(other.path_) { other.path_ = nullptr; }
  Path& operator=(Path&& other) noexcept {
    std::swap(path_, other.path_);
    return *this;
  }
  PathObject* get() const { return path_; }
  PathObject* operator->() const { return path_; }

 private:
  PathObject* path_;
};

}  // namespace path_test
