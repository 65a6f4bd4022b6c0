// Copies and moves whole trees by a command line.

#include "files/tree_copy.h"

#include <shellapi.h>

#include "base/heap.h"
#include "base/text.h"
#include "base/windows_owners.h"
#include "files/found_entry.h"
#include "files/tree_listing.h"

namespace {

// The fewest elements of a command line: an unused one, a source, the target.
constexpr int kFewestElements = 3;

// Capacity after the target's name for a blank, the time stamp and the terminator, in characters.
constexpr size_t kStampRoom = 32;
constexpr int kStampLength = sizeof(" 2000-01-01 00-00-00") - 1;

struct OptionLetter {
  wchar_t letter;
  DWORD sets;
  DWORD clears;
};

constexpr OptionLetter kOptionLetters[] = {
    {L'm', kTreeMove, 0},         {L'c', 0, kTreeMove},         {L'o', kTreeOverwrite, 0},
    {L'k', 0, kTreeOverwrite},    {L'b', kTreeKeepAside, 0},    {L'i', kTreeIgnoreErrors, 0},
    {L'e', 0, kTreeIgnoreErrors}, {L'r', kTreeRecurse, 0},      {L'f', 0, kTreeRecurse},
    {L'n', kTreeCreateTarget, 0}, {L'u', 0, kTreeCreateTarget}, {L'l', kTreeKeepLinks, 0},
    {L'g', 0, kTreeKeepLinks},    {L'z', 0, ~DWORD{0}},
};

DWORD ApplyOptions(DWORD options, const wchar_t* letters) {
  for (; *letters; ++letters) {
    for (const OptionLetter& option : kOptionLetters) {
      if (option.letter == *letters) options = (options & ~option.clears) | option.sets;
    }
  }
  return options;
}

bool LookUp(const wchar_t* name, WIN32_FIND_DATAW* found) {
  return static_cast<bool>(SearchHandle(FindFirstFileW(name, found)));
}

// Returns the start of `name`, which was joined onto a folder, in `path`; null for a null path.
const wchar_t* EntryOf(const wchar_t* path, const wchar_t* name) {
  return path ? path + TxtLenW(path) - TxtLenW(name) : nullptr;
}

// Renames `target` to a name that ends with the local time.
bool RenameAside(const wchar_t* target) {
  size_t length = TxtLenW(target);
  HeapStringW aside(static_cast<wchar_t*>(HeapAllocZero((length + kStampRoom) * sizeof(wchar_t))));
  if (!aside) return false;
  SYSTEMTIME now;
  GetLocalTime(&now);
  int written = wsprintfW(aside.get(), L"%s %04d-%02d-%02d %02d-%02d-%02d", target, now.wYear, now.wMonth,
                          now.wDay, now.wHour, now.wMinute, now.wSecond);
  // Windows cuts a formatted text that is too long; the target must not be renamed to a cut path.
  if (written < kStampLength || static_cast<size_t>(written) != length + kStampLength) return false;
  return MoveFileW(target, aside.get());
}

// Copies and moves the items of one tree, all with the same options.
class TreeCopier {
 public:
  explicit TreeCopier(DWORD options) : options_(options) {}

  // Copies or moves one item with its contents. `entry` is as in TreeItem.
  int Run(const wchar_t* source, const wchar_t* target, const wchar_t* entry);

 private:
  int PlaceItem(TreeItem item);
  bool Find(const TreeItem& item, const wchar_t* path);
  int ClearTarget(const TreeItem& item);
  int OpenFolder(TreeItem folder);
  int PlaceNextEntry();
  bool Has(DWORD option) const { return options_ & option; }
  // True if `found_` is a link that is not followed.
  bool IsKeptLink() const { return Has(kTreeKeepLinks) && IsLink(found_); }

  const DWORD options_;
  TreeLevels levels_;
  // The record of every look-up: it is used before the next look-up overwrites it.
  WIN32_FIND_DATAW found_;
};

int TreeCopier::Run(const wchar_t* source, const wchar_t* target, const wchar_t* entry) {
  TreeItem tree;
  tree.source = source;
  tree.target = target;
  tree.entry = entry;
  int status = PlaceItem(static_cast<TreeItem&&>(tree));
  while (levels_.top()) {
    status = PlaceNextEntry();
    if (Has(kTreeIgnoreErrors)) status = kStatusOk;
    if (status) break;
  }
  return status;
}

// True if `path`, the source or the target of `item`, leads to the item and to no other entry.
bool IsReached(const TreeItem& item, const wchar_t* path) {
  return !item.entry || LeadsTo(path, item.entry);
}

// Looks up `path`, the source or the target of `item`. A result that is certainly another entry counts as not
// found.
bool TreeCopier::Find(const TreeItem& item, const wchar_t* path) {
  return LookUp(path, &found_) && !(item.entry && IsAnotherEntry(found_, item.entry));
}

// Copies or moves one item. A folder to copy becomes the top level. If the item's path does not lead to it,
// the first step that would change something fails, because it would change another entry.
int TreeCopier::PlaceItem(TreeItem item) {
  const wchar_t* source = item.source;
  const wchar_t* target = item.target;
  if (!source || !target) return kStatusNoMemory;
  bool isMerged = false;
  if (Find(item, target)) {
    if (Has(kTreeOverwrite)) {
      if (int status = ClearTarget(item)) return status;
    } else {
      if (Has(kTreeMove)) return kTreeTargetExists;
      if (!IsFolder(found_) || !Has(kTreeRecurse)) return kStatusOk;
      if (IsKeptLink()) return kTreeNotCopied;
      isMerged = true;
    }
  }
  bool isReached = IsReached(item, source) && IsReached(item, target);
  if (Has(kTreeMove)) return isReached && MoveFileW(source, target) ? kStatusOk : kTreeNotMoved;

  if (!Find(item, source)) return kTreeNoSource;
  if (IsKeptLink()) return kTreeNotCopied;
  if (!IsFolder(found_)) {
    // On purpose: a folder with the file's name stays, and the result is success.
    if (isMerged) return kStatusOk;
    return isReached && CopyFileW(source, target, TRUE) ? kStatusOk : kTreeNotCopied;
  }
  if (!Has(kTreeRecurse)) return kTreeSourceIsFolder;
  if (!isMerged && !(isReached && CreateDirectoryW(target, nullptr))) return kTreeFolderNotCreated;
  if (!isReached) return Has(kTreeIgnoreErrors) ? kStatusOk : kStatusNotFound;
  return OpenFolder(static_cast<TreeItem&&>(item));
}

// Deletes or renames the target of `item`, which is to be overwritten; `found_` is the target's look-up.
int TreeCopier::ClearTarget(const TreeItem& item) {
  bool isReached = IsReached(item, item.target);
  if (Has(kTreeKeepAside)) return isReached && RenameAside(item.target) ? kStatusOk : kTreeNotRenamed;
  DWORD links = options_ & kTreeKeepLinks;
  return isReached && TreeDeleteWith(item.target, &found_, links) == ERROR_SUCCESS ? kStatusOk
                                                                                   : kTreeNotDeleted;
}

// Starts to copy the contents of `folder`.
int TreeCopier::OpenFolder(TreeItem folder) {
  HeapStringW pattern(JoinTreeName(folder.source, L"*"));
  TreeLevel* level = pattern ? levels_.Push(static_cast<TreeItem&&>(folder)) : nullptr;
  if (!level) return kStatusNoMemory;
  DWORD error = level->listing.Start(pattern.get(), &found_);
  if (!error) return kStatusOk;
  levels_.Pop();
  return error == ERROR_FILE_NOT_FOUND || Has(kTreeIgnoreErrors) ? kStatusOk : kStatusNotFound;
}

// Copies the next entry of the top folder, or closes the folder after its last one.
int TreeCopier::PlaceNextEntry() {
  TreeLevel* level = levels_.top();
  if (!level->listing.Next(&found_)) {
    bool isWhole = level->listing.IsWhole();
    levels_.Pop();
    return isWhole ? kStatusOk : kStatusNotFound;
  }
  TreeItem item;
  item.ownSource.reset(JoinTreeName(level->folder.source, found_.cFileName));
  item.ownTarget.reset(JoinTreeName(level->folder.target, found_.cFileName));
  item.source = item.ownSource.get();
  item.target = item.ownTarget.get();
  item.entry = EntryOf(item.source, found_.cFileName);
  return PlaceItem(static_cast<TreeItem&&>(item));
}

// Returns `name` without the dots at its end and then without one backslash: both "C:\Dir\." and "C:\Dir\"
// become "C:\Dir".
wchar_t* Trimmed(const wchar_t* name) {
  size_t length = TxtLenW(name);
  while (length && name[length - 1] == L'.') --length;
  if (length && name[length - 1] == L'\\') --length;
  return MakeTreeName(name, length, L"", L"");
}

// Returns `name` with `leaf` in place of the text after its last backslash.
wchar_t* WithLeaf(const wchar_t* name, const wchar_t* leaf) {
  const wchar_t* backslash = TxtFindLastCharW(name, L'\\');
  return MakeTreeName(name, backslash ? static_cast<size_t>(backslash + 1 - name) : 0, L"", leaf);
}

// Creates the target folder if the options ask for it. On purpose: failure is ignored, because usually the
// folder exists.
void ProvideTarget(const wchar_t* target, DWORD options) {
  if (!(options & kTreeCreateTarget)) return;
  HeapStringW folder(Trimmed(target));
  if (folder) CreateDirectoryW(folder.get(), nullptr);
}

bool HasWildcard(const wchar_t* name) {
  return TxtFindCharW(name, L'*') || TxtFindCharW(name, L'?');
}

// Copies or moves everything that `pattern` matches into the folder of `target`.
int PlaceMatches(const wchar_t* pattern, const wchar_t* target, DWORD options) {
  WIN32_FIND_DATAW found;
  Listing listing;
  if (DWORD error = listing.Start(pattern, &found)) {
    return error == ERROR_FILE_NOT_FOUND ? kStatusOk : kStatusNotFound;
  }
  ProvideTarget(target, options);
  while (listing.Next(&found)) {
    HeapStringW itemSource(WithLeaf(pattern, found.cFileName));
    HeapStringW itemTarget(WithLeaf(target, found.cFileName));
    int status = TreeCopier(options).Run(itemSource.get(), itemTarget.get(),
                                         EntryOf(itemSource.get(), found.cFileName));
    if (status && !(options & kTreeIgnoreErrors)) return status;
  }
  return listing.IsWhole() ? kStatusOk : kStatusNotFound;
}

int PlaceSource(const wchar_t* source, const wchar_t* target, DWORD options) {
  if (HasWildcard(source)) return PlaceMatches(source, target, options);
  ProvideTarget(target, options);
  HeapStringW trimmedSource(Trimmed(source));
  HeapStringW trimmedTarget(Trimmed(target));
  return TreeCopyMoveItem(trimmedSource.get(), trimmedTarget.get(), options);
}

}  // namespace

int TreeCopyMoveItem(const wchar_t* source, const wchar_t* target, DWORD options) {
  return TreeCopier(options).Run(source, target, nullptr);
}

int TreeCopyMove(const wchar_t* arguments) {
  if (!arguments) return kStatusMissingArgument;
  int count = 0;
  LocalBlock<LPWSTR> elements(CommandLineToArgvW(arguments, &count));
  if (!elements) return kStatusNoMemory;
  if (count < kFewestElements) return kStatusMissingArgument;
  wchar_t* target = elements.get()[count - 1];
  UseBackslashes(target);
  DWORD options = 0;
  for (int i = 1; i < count - 1; ++i) {
    wchar_t* element = elements.get()[i];
    if (element[0] == L'-') {
      options = ApplyOptions(options, element + 1);
    } else {
      UseBackslashes(element);
      int status = PlaceSource(element, target, options);
      if (status && !(options & kTreeIgnoreErrors)) return status;
    }
  }
  return kStatusOk;
}
