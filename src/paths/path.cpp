#include "paths/path.h"

#include "base/heap.h"
#include "base/text.h"
#include "paths/path_node.h"

namespace {

// A root of this form becomes one node with a name joined onto it: "X:\", of which the first two bytes are
// the drive.
constexpr int kDriveRootLength = 3;
constexpr int kDriveLength = 2;

// A counted run of bytes inside a text.
struct Span {
  const char* text;
  int length;

  bool Is(const char* other, int otherLength) const {
    return length == otherLength && StartsWith(other, otherLength);
  }
  bool StartsWith(const char* start, int startLength) const {
    if (length < startLength) return false;
    for (int i = 0; i < startLength; ++i) {
      if (text[i] != start[i]) return false;
    }
    return true;
  }
  bool EndsWithBackslash() const { return length && text[length - 1] == '\\'; }
  void Skip(int count) {
    text += count;
    length -= count;
  }
};

bool GoesUp(const Span& name) {
  return name.Is("..", 2) || name.StartsWith("..\\", 3);
}

bool IsParentItself(const Span& name) {
  return name.Is(".", 1) || name.Is("\\.", 2) || name.Is(".\\", 2) || name.Is("\\.\\", 3);
}

// Drops a leading "." of ".\", then a leading "\." of "\.\", then a trailing backslash. On purpose: each of
// the three only once.
void TrimJoinedName(Span* name) {
  if (name->StartsWith(".\\", 2)) name->Skip(1);
  if (name->StartsWith("\\.\\", 3)) name->Skip(2);
  if (name->EndsWithBackslash()) --name->length;
}

bool IsDriveRoot(const PathObject* path) {
  return !path->parent && path->length == kDriveRootLength && IsDriveAbsolute(path->text);
}

// True if a root's text needs no backslash before it: a bare drive or a drive-absolute path.
bool BeginsWithDrive(const Span& name) {
  return name.length >= kDriveLength && IsDrive(name.text) &&
         (name.length == kDriveLength || name.text[kDriveLength] == '\\');
}

// Returns a node without text and parent, whose text buffer has `room` zero bytes.
PathObject* NewNode(size_t room) {
  HeapBlock<PathObject> node(static_cast<PathObject*>(HeapAllocZero(sizeof(PathObject))));
  if (!node) return nullptr;
  HeapStringA text(static_cast<char*>(HeapAllocZero(room)));
  if (!text) return nullptr;
  node.get()->refCount = 1;
  node.get()->typeTag = kPathTag;
  node.get()->ops = {RefRetain, PathRelease, PathCompare, PathCopyText, PathQuery};
  node.get()->text = text.release();
  return node.release();
}

PathObject* Retain(PathObject* path) {
  return path ? static_cast<PathObject*>(path->ops.Retain(path)) : nullptr;
}

// Returns a node of `length` zero bytes, for the caller to fill.
PathObject* ReserveNode(PathObject* parent, int length) {
  PathObject* node = NewNode(static_cast<size_t>(length) + 2);
  if (!node) return nullptr;
  node->length = length;
  node->parent = Retain(parent);
  return node;
}

}  // namespace

PathObject* PathMake(PathObject* parent, const char* text, int length) {
  if (length > kMaxPathBytes) return nullptr;
  if (!text) return length < 0 ? nullptr : ReserveNode(parent, length);
  if (length < 0) {
    size_t whole = TxtLenA(text);
    if (whole > kMaxPathBytes) return nullptr;
    length = static_cast<int>(whole);
  }

  Span name{text, length};
  if (GoesUp(name)) return nullptr;
  const PathObject* absorbed = nullptr;
  if (parent) {
    if (IsParentItself(name)) return Retain(parent);
    TrimJoinedName(&name);
    if (IsDriveRoot(parent)) absorbed = parent;
  }
  if (name.Is("\\.", 2)) return Retain(parent);
  if (name.length > 2 && name.text[name.length - 2] == '\\' && name.text[name.length - 1] == '.') {
    name.length -= 2;
  }
  if (parent && !name.length) return Retain(parent);

  int prefix = absorbed ? kDriveLength : 0;
  PathObject* node = NewNode(static_cast<size_t>(prefix) + static_cast<size_t>(name.length) + 2);
  if (!node) return nullptr;
  // A root of exactly "X:\" keeps its backslash: PathMake recognises it by that when a name is joined onto
  // it.
  bool isDriveRoot = !parent && name.length == kDriveRootLength && IsDriveAbsolute(name.text);
  if (name.length > 1 && name.EndsWithBackslash() && !isDriveRoot) --name.length;
  char* end = node->text;
  if (absorbed) {
    CopyBytes(end, absorbed->text, kDriveLength);
    end += kDriveLength;
  }
  bool standsAlone = (name.length && name.text[0] == '\\') || (!parent && BeginsWithDrive(name));
  if (!standsAlone) *end++ = '\\';
  CopyBytes(end, name.text, static_cast<size_t>(name.length));
  end += name.length;
  node->length = static_cast<LONG>(end - node->text);
  if (!absorbed) node->parent = Retain(parent);
  return node;
}

PathObject* PathJoinWide(PathObject* parent, const wchar_t* text, int length) {
  int bytes = 0;
  HeapStringA utf8(WideToUtf8(text, length, &bytes));
  return utf8 ? PathMake(parent, utf8.get(), bytes) : nullptr;
}

PathObject* PathAppendLnk(PathObject* path) {
  constexpr char kSuffix[] = ".lnk";
  if (!path || path->length > kMaxPathBytes) return nullptr;
  // On purpose: the length counts the terminator of the suffix (see PathAppendLnk in path.h).
  PathObject* link = PathMake(path->parent, nullptr, path->length + static_cast<int>(sizeof kSuffix));
  if (!link) return nullptr;
  size_t visible = TxtLenA(path->text);
  CopyBytes(link->text, path->text, visible);
  CopyBytes(link->text + visible, kSuffix, sizeof kSuffix);
  return link;
}

void PathRelease(Object* object) {
  // First link the nodes that lose their last reference, the one nearest to the root first. Then free them in
  // that order: a parent before its child, without recursion however long the chain is.
  PathObject* dead = nullptr;
  for (PathObject* node = static_cast<PathObject*>(object); node;) {
    if (InterlockedDecrement(&node->refCount) >= 1) break;
    PathObject* parent = node->parent;
    node->parent = dead;
    dead = node;
    node = parent;
    if (node && node->ops.Release != PathRelease) {
      node->ops.Release(node);
      break;
    }
  }
  while (dead) {
    PathObject* next = dead->parent;
    HeapFreeSafe(dead->text);
    dead->ops.Retain = nullptr;
    dead->ops.Release = nullptr;
    HeapFreeSafe(dead);
    dead = next;
  }
}
