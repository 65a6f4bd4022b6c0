#include "files/dir_walker.h"

#include "base/error_mode.h"
#include "base/heap.h"
#include "base/object.h"
#include "base/text.h"
#include "base/windows_owners.h"
#include "files/file_status.h"
#include "files/found_entry.h"
#include "files/wildcard.h"
#include "paths/long_name.h"

namespace {

// Asks Windows for everything in a folder.
constexpr char kAllEntries[] = "*.*";

bool IsUnlimited(const DirWalker& walker) {
  return walker.maxDepth == 0;
}

// True if the entries found now lie at the depth of the limit.
bool IsAtLimit(const DirWalker& walker) {
  return !IsUnlimited(walker) && walker.depth == walker.maxDepth;
}

// True if Windows itself searches for the pattern in the folder being listed.
bool IsSearchedByPattern(const DirWalker& walker) {
  return walker.pattern && (IsUnlimited(walker) || IsAtLimit(walker));
}

bool IsEntered(const DirWalker& walker) {
  return IsUnlimited(walker) || walker.depth < walker.maxDepth;
}

void PushFrame(DirWalker* walker, DirWalkerFrame* frame) {
  frame->below = walker->frames;
  walker->frames = frame;
  ++walker->depth;
}

void PopFrame(DirWalker* walker) {
  DirWalkerFrame* frame = walker->frames;
  walker->frames = frame->below;
  --walker->depth;
  HeapDelete(frame);
}

void ReleasePath(PathObject** path) {
  PathRef(*path).reset();
  *path = nullptr;
}

PathObject* Retain(PathObject* path) {
  return path ? static_cast<PathObject*>(path->ops.Retain(path)) : nullptr;
}

// Releases everything that the walker holds.
void Clear(DirWalker* walker) {
  while (walker->frames) PopFrame(walker);
  ReleasePath(&walker->root);
  ReleasePath(&walker->current);
  HeapFreeSafe(walker->pattern);
  walker->pattern = nullptr;
}

HANDLE OpenSearch(const DirWalker& walker, WIN32_FIND_DATAW* found) {
  const char* pattern = IsSearchedByPattern(walker) ? walker.pattern : kAllEntries;
  PathRef search(PathMake(walker.current, pattern, -1));
  HeapStringW text(PathToWide(search.get()));
  if (!text) return INVALID_HANDLE_VALUE;
  ErrorModeGuard errorMode;
  return FindFirstFileW(text.get(), found);
}

// Finds the next entry of the folder being listed; false if there is none.
bool FindEntry(DirWalker* walker, WIN32_FIND_DATAW* found) {
  SearchHandle& search = walker->frames->search;
  if (search) return FindNextFileW(search.get(), found);
  search.reset(OpenSearch(*walker, found));
  return static_cast<bool>(search);
}

// True if an entry is neither returned nor entered.
bool IsSkipped(const DirWalker& walker, const WIN32_FIND_DATAW& found, const wchar_t* name) {
  if (!IsFolder(found) && !IsAtLimit(walker) && !MatchWildcard(name, walker.pattern)) return true;
  if (IsDots(found)) return true;
  if (!walker.followReparse && (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) return true;
  if (walker.followReparse == kSkipFolderLinks && IsFolder(found) && IsLink(found)) return true;
  return IsFolder(found) && !(walker.flags & kReturnFolders) && !IsEntered(walker);
}

bool IsGivenOutWhenFound(const DirWalker& walker, const WIN32_FIND_DATAW& found, const wchar_t* name) {
  if (!IsFolder(found)) return walker.flags & kReturnFiles;
  return !walker.foldersAfterContents && (walker.flags & kReturnFolders) &&
         MatchWildcard(name, walker.pattern);
}

// Makes `folder` the one being listed; false if out of memory.
bool Enter(DirWalker* walker, PathObject* folder) {
  DirWalkerFrame* frame = HeapNew<DirWalkerFrame>();
  if (!frame) return false;
  PushFrame(walker, frame);
  ReleasePath(&walker->current);
  walker->current = Retain(folder);
  return true;
}

// Returns to the folder around the one being listed. Returns the folder left if it must be returned to the
// caller now, otherwise null.
PathObject* Leave(DirWalker* walker) {
  PathRef left(walker->current);
  bool isGivenOut = walker->foldersAfterContents && (walker->flags & kReturnFolders) && walker->depth >= 2;
  PopFrame(walker);
  walker->current = PathFolder(left.get());
  if (!isGivenOut) return nullptr;
  const char* name = TxtFindLastCharA(left.get()->text, '\\');
  return MatchWildcardA(name ? name + 1 : left.get()->text, walker->pattern) ? left.release() : nullptr;
}

void Release(Object* object) {
  if (!object) return;
  DirWalker* walker = static_cast<DirWalker*>(object);
  if (InterlockedDecrement(&walker->refCount) >= 1) return;
  Clear(walker);
  walker->ops = {};
  HeapFreeSafe(walker);
}

UINT_PTR Query(Object*, DWORD selector, UINT_PTR, void*, const char*, unsigned) {
  return selector == kQueryWalker ? reinterpret_cast<UINT_PTR>(&DirWalkerNext) : 0;
}

}  // namespace

DirWalker* DirWalkerCreate(PathObject* folder) {
  DirWalker* walker = HeapNew<DirWalker>();
  if (!walker) return nullptr;
  walker->refCount = 1;
  walker->typeTag = kWalkerTag;
  walker->ops = {RefRetain, Release, nullptr, nullptr, Query};
  DirWalkerReset(walker, folder);
  return walker;
}

void DirWalkerReset(DirWalker* walker, PathObject* folder) {
  // The walker may hold the only reference to the folder.
  PathRef root(Retain(folder));
  Clear(walker);
  walker->root = Retain(folder);
  walker->current = root.release();
  walker->depth = 0;
  walker->maxDepth = 0;
  walker->flags = ~DWORD{0};
  walker->followReparse = 1;
  walker->foldersAfterContents = 0;
  if (DirWalkerFrame* frame = HeapNew<DirWalkerFrame>()) PushFrame(walker, frame);
}

PathObject* DirWalkerNext(DirWalker* walker) {
  if (!walker) return nullptr;
  while (walker->current && walker->frames) {
    WIN32_FIND_DATAW found;
    if (!FindEntry(walker, &found)) {
      if (PathObject* left = Leave(walker)) return left;
      continue;
    }
    const wchar_t* name = FoundName(&found);
    if (IsSkipped(*walker, found, name)) continue;
    PathRef entry(PathJoinWide(walker->current, name, -1));
    if (!entry) return nullptr;
    bool isGivenOut = IsGivenOutWhenFound(*walker, found, name);
    if (IsFolder(found) && IsEntered(*walker) && !Enter(walker, entry.get())) return nullptr;
    if (isGivenOut) return entry.release();
  }
  return nullptr;
}

UINT_PTR PathOfferWalker(PathObject* path, UINT_PTR wanted, RecordBuffer*) {
  if (wanted != kWalkerConstructor || FolderExists(path) != kStatusOk) return 0;
  return reinterpret_cast<UINT_PTR>(&DirWalkerCreate);
}
