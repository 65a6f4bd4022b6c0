#include "files/file_status.h"

#include "base/heap.h"
#include "base/windows_owners.h"
#include "files/found_entry.h"

namespace {

// Looks up the entry `name`: kStatusNotFound, kStatusWrongKind for a folder, or kStatusOk.
int LookUpFile(const wchar_t* name) {
  WIN32_FIND_DATAW found;
  SearchHandle search(FindFirstFileW(name, &found));
  if (!search) return kStatusNotFound;
  return IsFolder(found) ? kStatusWrongKind : kStatusOk;
}

// Creates the folder `name` unless it exists.
int ProvideFolder(const wchar_t* name) {
  switch (LookUpFile(name)) {
    case kStatusWrongKind:
      return kStatusOk;
    case kStatusOk:
      return kStatusWrongKind;
    default:
      return CreateDirectoryW(name, nullptr) ? kStatusOk : kStatusNotCreated;
  }
}

// Stores the wide text of `path` in `text`; returns the status of a failure.
int Widen(PathObject* path, HeapStringW* text) {
  if (!path) return kStatusMissingArgument;
  text->reset(PathToWide(path));
  return *text ? kStatusOk : kStatusNoMemory;
}

}  // namespace

int FileExists(PathObject* path) {
  HeapStringW name;
  if (int status = Widen(path, &name)) return status;
  FileHandle file(CreateFileW(name.get(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return kStatusNotFound;
  file.reset();
  return LookUpFile(name.get());
}

int FolderExists(PathObject* path) {
  HeapStringW name;
  if (int status = Widen(path, &name)) return status;
  DWORD attributes = GetFileAttributesW(name.get());
  if (attributes == INVALID_FILE_ATTRIBUTES) return kStatusNotFound;
  return attributes & FILE_ATTRIBUTE_DIRECTORY ? kStatusOk : kStatusWrongKind;
}

int MovePath(PathObject* from, PathObject* to) {
  if (!from || !to) return kStatusMissingArgument;
  HeapStringW source(PathToWide(from));
  HeapStringW target(PathToWide(to));
  if (!source || !target) return kStatusNoMemory;
  return MoveFileExW(source.get(), target.get(), MOVEFILE_REPLACE_EXISTING) ? kStatusOk
                                                                            : kStatusOperationFailed;
}

int CreateFolderChain(PathObject* path) {
  HeapStringW chain;
  if (int status = Widen(path, &chain)) return status;
  wchar_t* text = chain.get();
  for (wchar_t* cut = text; *cut; ++cut) {
    if (*cut != L'\\' || (cut != text && cut[-1] == L':')) continue;
    *cut = L'\0';
    int status = ProvideFolder(text);
    *cut = L'\\';
    if (status) return status;
  }
  return ProvideFolder(text);
}
