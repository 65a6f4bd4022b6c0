// Paths that are completed to absolute ones and spelled as on the disk.

#include "base/error_mode.h"
#include "base/heap.h"
#include "base/text.h"
#include "base/windows_owners.h"
#include "paths/long_name.h"
#include "paths/path_node.h"

namespace {

// The first buffer for a completed path in characters, and the slack in bytes after each buffer's capacity.
constexpr DWORD kFirstFullPath = 1025;
constexpr size_t kFullPathSlack = 512;

// Returns the absolute form of `text` as a new wide string, or null.
wchar_t* CompletePath(const wchar_t* text) {
  HeapStringW full;
  for (DWORD capacity = kFirstFullPath;;) {
    size_t bytes = size_t{capacity} * sizeof(wchar_t) + kFullPathSlack;
    full = HeapStringW(static_cast<wchar_t*>(HeapReAllocOrFree(full.release(), bytes)));
    if (!full) return nullptr;
    DWORD reported = GetFullPathNameW(text, capacity, full.get(), nullptr);
    if (!reported) return nullptr;
    if (reported < capacity) return full.release();
    capacity = reported + 1;
  }
}

// True if `name` may be a short name on the disk, so that it must be looked up.
bool IsWorthLookingUp(const char* name) {
  for (const char* unit = name; *unit; ++unit) {
    if (*unit == '\\' || IsBarredFromNames(static_cast<unsigned char>(*unit))) return false;
  }
  return HasShortNameShapeA(name, TxtLenA(name));
}

// Finds the entry at `path`; false if there is none.
bool FindEntry(const wchar_t* path, WIN32_FIND_DATAW* found) {
  ErrorModeGuard errorMode;
  SearchHandle search(FindFirstFileW(path, found));
  return static_cast<bool>(search);
}

}  // namespace

PathObject* PathFromWide(const wchar_t* text) {
  if (!text || !*text) return nullptr;
  if (TxtFindCharW(text, L'*')) return PathJoinWide(nullptr, text, -1);
  HeapStringW full;
  if (!IsDriveAbsolute(text)) {
    full = HeapStringW(CompletePath(text));
    if (!full) return nullptr;
    text = full.get();
  }
  HeapStringW expanded(ExpandLongNames(text));
  return PathJoinWide(nullptr, expanded.get(), -1);
}

PathObject* PathFromUtf8(const char* text) {
  if (!text || !*text) return nullptr;
  if (TxtFindCharA(text, '*')) return PathMake(nullptr, text, -1);
  HeapStringW wide(Utf8ToWide(text, -1));
  return PathFromWide(wide.get());
}

PathObject* PathFromWrittenWide(wchar_t* text) {
  UseBackslashes(text);
  return PathFromWide(text);
}

PathObject* PathFromWrittenUtf8(char* text) {
  UseBackslashes(text);
  return PathFromUtf8(text);
}

PathObject* PathJoin(PathObject* folder, const char* name) {
  PathRef joined(PathMake(folder, name, -1));
  // A name that means the folder itself is not an entry of it.
  if (!joined || joined.get() == folder || !IsWorthLookingUp(name)) return joined.release();
  HeapStringW wide(PathToWide(joined.get()));
  if (!wide) return nullptr;
  WIN32_FIND_DATAW found;
  if (!FindEntry(wide.get(), &found)) return joined.release();
  return PathJoinWide(folder, FoundName(&found), -1);
}

PathObject* PathFolder(PathObject* path) {
  if (!path) return nullptr;
  const char* leaf = TxtFindLastCharA(path->text, '\\');
  // Only a bare drive has no backslash. It is its own folder, like "X:\", which PathToWide makes of it.
  PathObject* folder = leaf ? path->parent : path;
  if (leaf && leaf != path->text) {
    return PathMake(path->parent, path->text, static_cast<int>(leaf - path->text));
  }
  return folder ? static_cast<PathObject*>(folder->ops.Retain(folder)) : nullptr;
}

PathObject* PathReplaceLeaf(PathObject* path, const char* name) {
  PathRef folder(PathFolder(path));
  bool standsAlone = !path || (!path->parent && TxtFindLastCharA(path->text, '\\') == path->text);
  return folder || standsAlone ? PathJoin(folder.get(), name) : nullptr;
}
