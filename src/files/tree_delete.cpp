// Deletes whole trees.

#include "base/heap.h"
#include "files/found_entry.h"
#include "files/tree_copy.h"
#include "files/tree_listing.h"

namespace {

// Starts to list `folder` in a new top level.
DWORD Open(TreeLevels* levels, TreeItem folder, WIN32_FIND_DATAW* found) {
  HeapStringW pattern(JoinTreeName(folder.source, L"*"));
  TreeLevel* level = pattern ? levels->Push(static_cast<TreeItem&&>(folder)) : nullptr;
  if (!level) return ERROR_NOT_ENOUGH_MEMORY;
  DWORD error = level->listing.Start(pattern.get(), found);
  // A folder without entries, even without "." and "..", counts as empty.
  return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
}

// True if the contents of the entry `found` are deleted too: it is a folder, and not a link to keep.
bool IsGoneThrough(const WIN32_FIND_DATAW& found, DWORD options) {
  return IsFolder(found) && !((options & kTreeKeepLinks) && IsLink(found));
}

// Deletes a file, or a link itself.
DWORD DeleteAlone(const wchar_t* path, const WIN32_FIND_DATAW& found) {
  BOOL isDeleted = IsFolder(found) ? RemoveDirectoryW(path) : DeleteFileW(path);
  return isDeleted ? ERROR_SUCCESS : GetLastError();
}

// Deletes the entry `found` of the top folder. A folder is opened, and deleted after it has been emptied.
DWORD DeleteEntry(TreeLevels* levels, WIN32_FIND_DATAW* found, DWORD options) {
  TreeItem entry;
  entry.ownSource.reset(JoinTreeName(levels->top()->folder.source, found->cFileName));
  entry.source = entry.ownSource.get();
  if (!entry.source) return ERROR_NOT_ENOUGH_MEMORY;
  // The path would delete another entry.
  if (!LeadsTo(entry.source, found->cFileName)) return ERROR_INVALID_NAME;
  if (!IsGoneThrough(*found, options)) return DeleteAlone(entry.source, *found);
  return Open(levels, static_cast<TreeItem&&>(entry), found);
}

// Deletes the top folder, which is empty now.
DWORD DeleteTopFolder(TreeLevels* levels) {
  // An open search would prevent the deletion.
  levels->top()->listing.Close();
  DWORD error = RemoveDirectoryW(levels->top()->folder.source) ? ERROR_SUCCESS : GetLastError();
  levels->Pop();
  return error;
}

}  // namespace

DWORD TreeDelete(const wchar_t* path, WIN32_FIND_DATAW* found) {
  return TreeDeleteWith(path, found, 0);
}

DWORD TreeDeleteWith(const wchar_t* path, WIN32_FIND_DATAW* found, DWORD options) {
  if (!IsGoneThrough(*found, options)) return DeleteAlone(path, *found);
  TreeLevels levels;
  TreeItem folder;
  folder.source = path;
  DWORD error = Open(&levels, static_cast<TreeItem&&>(folder), found);
  while (!error && levels.top()) {
    bool isEmpty = !levels.top()->listing.Next(found);
    error = isEmpty ? DeleteTopFolder(&levels) : DeleteEntry(&levels, found, options);
  }
  return error;
}
