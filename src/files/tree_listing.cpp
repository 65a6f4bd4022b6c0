#include "files/tree_listing.h"

#include "base/text.h"
#include "files/found_entry.h"

DWORD Listing::Start(const wchar_t* pattern, WIN32_FIND_DATAW* found) {
  search_.reset(FindFirstFileW(pattern, found));
  if (!search_) return GetLastError();
  isAtFirst_ = true;
  return ERROR_SUCCESS;
}

bool Listing::Next(WIN32_FIND_DATAW* found) {
  if (!search_) return false;
  do {
    if (isAtFirst_) {
      isAtFirst_ = false;
    } else if (!FindNextFileW(search_.get(), found)) {
      error_ = GetLastError();
      return false;
    }
  } while (IsDots(*found));
  return true;
}

TreeLevel* TreeLevels::Push(TreeItem folder) {
  TreeLevel* level = HeapNew<TreeLevel>();
  if (!level) return nullptr;
  level->folder = static_cast<TreeItem&&>(folder);
  level->below = top_;
  top_ = level;
  return level;
}

void TreeLevels::Pop() {
  TreeLevel* level = top_;
  top_ = level->below;
  HeapDelete(level);
}

wchar_t* MakeTreeName(const wchar_t* head, size_t headLength, const wchar_t* middle, const wchar_t* tail) {
  size_t middleLength = TxtLenW(middle);
  size_t tailSize = TxtLenW(tail) + 1;
  wchar_t* name =
      static_cast<wchar_t*>(HeapAllocZero((headLength + middleLength + tailSize) * sizeof(wchar_t)));
  if (!name) return nullptr;
  CopyBytes(name, head, headLength * sizeof(wchar_t));
  CopyBytes(name + headLength, middle, middleLength * sizeof(wchar_t));
  CopyBytes(name + headLength + middleLength, tail, tailSize * sizeof(wchar_t));
  return name;
}

wchar_t* JoinTreeName(const wchar_t* folder, const wchar_t* name) {
  size_t length = TxtLenW(folder);
  bool hasBackslash = length && folder[length - 1] == L'\\';
  return MakeTreeName(folder, length, hasBackslash ? L"" : L"\\", name);
}
