#include "disk.h"

#include "image.h"
#include "require.h"
#include "world.h"

namespace {

// Longer paths are refused, like those of old programs on Windows.
constexpr size_t kLongestPath = 160;
// A run that needs more calls sees a disk that does not answer any more: links can make a tree endless.
constexpr uint32_t kMostCalls = 800;

std::unique_ptr<Entry> root, away;
uint32_t calls;
DiskWatcher watcher;

// What a search has found: the disk as it was then.
struct Found {
  std::u16string name, shortName;
  DWORD attributes;
};
struct Search {
  std::vector<Found> found;
  size_t next = 0;
};
std::unordered_map<const void*, Search> searches;

bool Matches(std::u16string_view pattern, std::u16string_view name) {
  if (pattern == u"*.*") return true;
  if (pattern.empty()) return name.empty();
  if (pattern[0] == u'*')
    return Matches(pattern.substr(1), name) || (!name.empty() && Matches(pattern, name.substr(1)));
  if (name.empty()) return false;
  return (pattern[0] == u'?' || FoldedUnit(pattern[0]) == FoldedUnit(name[0])) &&
         Matches(pattern.substr(1), name.substr(1));
}

// True if the pattern means the entry: by its long or its short name.
bool IsMatch(std::u16string_view pattern, const Entry& entry) {
  return Matches(pattern, entry.name) || (!entry.shortName.empty() && Matches(pattern, entry.shortName));
}

// A path, taken apart as Windows does. It holds its text itself: a run takes apart hundreds of paths, and to
// allocate memory for each would take most of its time.
class Parsed {
 public:
  explicit Parsed(std::u16string_view path);
  Parsed(const Parsed&) = delete;
  Parsed& operator=(const Parsed&) = delete;

  bool isValid() const { return isValid_; }
  bool endsWithBackslash() const { return endsWithBackslash_; }
  bool isRoot() const { return count_ == 0; }
  // The names, in their order.
  size_t count() const { return count_; }
  std::u16string_view name(size_t index) const { return names_[index]; }
  std::u16string_view last() const { return names_[count_ - 1]; }

 private:
  void Put(std::u16string_view text) {
    for (char16_t unit : text) text_[length_++] = unit == u'/' ? u'\\' : unit;
  }

  static constexpr std::u16string_view kCurrent = u"\\current\\";
  bool isValid_ = false;
  bool endsWithBackslash_ = false;
  size_t count_ = 0, length_ = 0;
  char16_t text_[kLongestPath + kCurrent.size()];
  std::u16string_view names_[kLongestPath + kCurrent.size()];
};

Parsed::Parsed(std::u16string_view path) {
  constexpr std::u16string_view kUncut = u"\\\\?\\";
  auto isBackslash = [](char16_t unit) { return unit == u'\\' || unit == u'/'; };
  const bool isCut = path.substr(0, kUncut.size()) != kUncut;
  if (!isCut) path.remove_prefix(kUncut.size());
  if (path.size() > kLongestPath) return;
  if (path.size() >= 2 && path[1] == u':') {
    if (FoldedUnit(path[0]) != u'C') return;
    path.remove_prefix(2);
    // Without a backslash the drive means its current folder.
    if (path.empty() || !isBackslash(path[0])) Put(kCurrent);
  } else if (path.empty() || !isBackslash(path[0])) {
    Put(kCurrent);
  } else if (path.size() > 1 && isBackslash(path[1])) {
    return;
  }
  Put(path);
  isValid_ = true;
  const std::u16string_view text(text_, length_);
  for (size_t at = 1; at <= text.size();) {
    const size_t end = std::min(text.find(u'\\', at), text.size());
    std::u16string_view name = text.substr(at, end - at);
    at = end + 1;
    const bool isOwn = isCut && name == u".";
    const bool isUp = name == u"..";
    if (isUp && count_) --count_;
    while (isCut && !name.empty() && (name.back() == u'.' || name.back() == u' ')) name.remove_suffix(1);
    // So does a path whose last name has only dots and blanks.
    endsWithBackslash_ = name.empty() && !isOwn && !isUp;
    if (!name.empty() && !isUp) names_[count_++] = name;
  }
}

bool IsValidName(std::u16string_view name) {
  return !name.empty() && name.size() < MAX_PATH &&
         name.find_first_of(u"\"*/:<>?|") == std::u16string_view::npos &&
         std::none_of(name.begin(), name.end(), [](char16_t unit) { return unit < u' '; });
}

Entry* Child(Entry* folder, std::u16string_view name) {
  for (const auto& child : folder->children) {
    if (IsSameName(child->name, name)) return child.get();
  }
  for (const auto& child : folder->children) {
    if (!child->shortName.empty() && IsSameName(child->shortName, name)) return child.get();
  }
  return nullptr;
}

// Where the contents of a folder or of a link are; null for a file and for a link to nowhere.
Entry* Contents(Entry* entry) {
  for (int steps = 0; entry && entry->isLink; entry = entry->target) {
    if (++steps > 8) return nullptr;
  }
  return entry && entry->isFolder ? entry : nullptr;
}

// Returns the folder that holds the last name of a path, or null.
Entry* FolderOf(const Parsed& parsed) {
  Entry* folder = root.get();
  for (size_t i = 0; folder && i + 1 < parsed.count(); ++i) {
    folder = Child(folder, parsed.name(i));
    if (folder) folder = Contents(folder);
  }
  return folder;
}

// Returns the entry of a path, or null. Sets the error.
Entry* Find(const Parsed& parsed) {
  if (!parsed.isValid()) return WithError(ERROR_PATH_NOT_FOUND, nullptr);
  if (parsed.isRoot()) return root.get();
  Entry* folder = FolderOf(parsed);
  if (!folder) return WithError(ERROR_PATH_NOT_FOUND, nullptr);
  Entry* entry = Child(folder, parsed.last());
  return entry ? entry : WithError(ERROR_FILE_NOT_FOUND, nullptr);
}

// Counts a call. Returns true, and sets the error, if it must fail.
bool Refuses() {
  ++calls;
  if (!MustFail() && calls <= kMostCalls) return false;
  world.error = ERROR_ACCESS_DENIED;
  return true;
}

// Reports that a call is about to change the entry of a path.
void Report(LPCWSTR path, bool isMoved = false) {
  if (watcher) watcher(std::u16string(ViewOf(path)), isMoved);
}

// Adds an entry; null if the name is barred or exists, and then sets the error.
Entry* Add(const Parsed& parsed, std::unique_ptr<Entry> entry) {
  if (!parsed.isValid() || parsed.isRoot()) return WithError(ERROR_PATH_NOT_FOUND, nullptr);
  Entry* folder = FolderOf(parsed);
  if (!folder) return WithError(ERROR_PATH_NOT_FOUND, nullptr);
  const std::u16string_view name = parsed.last();
  if (!IsValidName(name)) return WithError(ERROR_INVALID_NAME, nullptr);
  if (Child(folder, name)) return WithError(ERROR_ALREADY_EXISTS, nullptr);
  entry->name = name;
  entry->parent = folder;
  folder->children.push_back(std::move(entry));
  return folder->children.back().get();
}

std::unique_ptr<Entry> TakeOut(Entry* entry) {
  auto& siblings = entry->parent->children;
  auto at =
      std::find_if(siblings.begin(), siblings.end(), [&](const auto& each) { return each.get() == entry; });
  std::unique_ptr<Entry> taken = std::move(*at);
  siblings.erase(at);
  return taken;
}

// Links to what is gone lead nowhere.
void ForgetTarget(const Entry* gone) {
  for (const auto& entries : {AllEntries(), AwayEntries()}) {
    for (Entry* entry : entries) {
      if (entry->target == gone) entry->target = nullptr;
    }
  }
}

bool IsWithin(const Entry* entry, const Entry* folder) {
  for (; entry; entry = entry->parent) {
    if (entry == folder) return true;
  }
  return false;
}

DWORD Attributes(const Entry& entry) {
  DWORD attributes = entry.isFolder ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
  return entry.isLink ? attributes | FILE_ATTRIBUTE_REPARSE_POINT : attributes;
}

Found Record(const Entry& entry, std::u16string_view name) {
  return {std::u16string(name), entry.shortName, Attributes(entry)};
}

// Stores what the search finds next.
void Deliver(Search* search, LPWIN32_FIND_DATAW record) {
  const Found& found = search->found[search->next++];
  constexpr int kRubbish = 0xA5;
  memset(record, kRubbish, sizeof *record);
  record->dwFileAttributes = found.attributes;
  record->dwReserved0 = found.attributes & FILE_ATTRIBUTE_REPARSE_POINT ? IO_REPARSE_TAG_MOUNT_POINT : 0;
  memcpy(record->cFileName, found.name.c_str(), (found.name.size() + 1) * sizeof(wchar_t));
  memcpy(record->cAlternateFileName, found.shortName.c_str(), (found.shortName.size() + 1) * sizeof(wchar_t));
}

HANDLE WINAPI AnswerFindFirstFileW(LPCWSTR text, LPWIN32_FIND_DATAW found) {
  if (Refuses()) return INVALID_HANDLE_VALUE;
  const Parsed parsed(ViewOf(text));
  if (!parsed.isValid()) return WithError(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
  if (parsed.endsWithBackslash() || parsed.isRoot())
    return WithError(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
  Search search;
  const std::u16string_view last = parsed.last();
  if (last.find_first_of(u"*?") == std::u16string::npos) {
    Entry* entry = Find(parsed);
    if (!entry) return INVALID_HANDLE_VALUE;
    search.found.push_back(Record(*entry, entry->name));
  } else {
    Entry* folder = FolderOf(parsed);
    if (!folder) return WithError(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
    if (folder->parent) {
      if (Matches(last, u".")) search.found.push_back(Record(*folder, u"."));
      if (Matches(last, u"..")) search.found.push_back(Record(*folder, u".."));
    }
    for (const auto& child : folder->children) {
      if (IsMatch(last, *child)) search.found.push_back(Record(*child, child->name));
    }
  }
  if (search.found.empty()) return WithError(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
  Deliver(&search, found);
  HANDLE handle = NewHandle(Kind::kSearch);
  searches[handle] = std::move(search);
  return handle;
}

BOOL WINAPI AnswerFindNextFileW(HANDLE handle, LPWIN32_FIND_DATAW found) {
  NeedHeld(Kind::kSearch, handle);
  if (Refuses()) return FALSE;
  Search& search = searches[handle];
  if (search.next == search.found.size()) return WithError(ERROR_NO_MORE_FILES, FALSE);
  Deliver(&search, found);
  return TRUE;
}

BOOL WINAPI AnswerFindClose(HANDLE handle) {
  GaveBack(Kind::kSearch, handle);
  searches.erase(handle);
  return TRUE;
}

DWORD WINAPI AnswerGetFileAttributesW(LPCWSTR path) {
  if (Refuses()) return INVALID_FILE_ATTRIBUTES;
  Entry* entry = Find(Parsed(ViewOf(path)));
  return entry ? Attributes(*entry) : INVALID_FILE_ATTRIBUTES;
}

BOOL WINAPI AnswerCreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES) {
  if (Refuses()) return FALSE;
  Report(path);
  auto folder = std::make_unique<Entry>();
  folder->isFolder = true;
  return Add(Parsed(ViewOf(path)), std::move(folder)) != nullptr;
}

BOOL WINAPI AnswerRemoveDirectoryW(LPCWSTR path) {
  if (Refuses()) return FALSE;
  Report(path);
  Entry* entry = Find(Parsed(ViewOf(path)));
  if (!entry) return FALSE;
  if (!entry->isFolder || !entry->parent) return WithError(ERROR_DIRECTORY, FALSE);
  if (!entry->children.empty()) return WithError(ERROR_DIR_NOT_EMPTY, FALSE);
  std::unique_ptr<Entry> gone = TakeOut(entry);
  ForgetTarget(gone.get());
  return TRUE;
}

BOOL WINAPI AnswerDeleteFileW(LPCWSTR path) {
  if (Refuses()) return FALSE;
  Report(path);
  Entry* entry = Find(Parsed(ViewOf(path)));
  if (!entry) return FALSE;
  if (entry->isFolder) return WithError(ERROR_ACCESS_DENIED, FALSE);
  TakeOut(entry);
  return TRUE;
}

BOOL WINAPI AnswerCopyFileW(LPCWSTR from, LPCWSTR to, BOOL refusesExisting) {
  if (Refuses()) return FALSE;
  Report(to);
  Entry* source = Find(Parsed(ViewOf(from)));
  if (!source) return FALSE;
  if (source->isFolder) return WithError(ERROR_ACCESS_DENIED, FALSE);
  const Parsed parsed(ViewOf(to));
  if (Entry* existing = Find(parsed)) {
    if (refusesExisting) return WithError(ERROR_FILE_EXISTS, FALSE);
    if (existing->isFolder) return WithError(ERROR_ACCESS_DENIED, FALSE);
    existing->content = source->content;
    return TRUE;
  }
  auto copy = std::make_unique<Entry>();
  copy->content = source->content;
  return Add(parsed, std::move(copy)) != nullptr;
}

BOOL Move(LPCWSTR from, LPCWSTR to, bool replaces) {
  if (Refuses()) return FALSE;
  Report(from, true);
  Report(to);
  Entry* source = Find(Parsed(ViewOf(from)));
  if (!source) return FALSE;
  if (!source->parent) return WithError(ERROR_ACCESS_DENIED, FALSE);
  const Parsed parsed(ViewOf(to));
  if (!parsed.isValid() || parsed.isRoot()) return WithError(ERROR_PATH_NOT_FOUND, FALSE);
  Entry* folder = FolderOf(parsed);
  if (!folder) return WithError(ERROR_PATH_NOT_FOUND, FALSE);
  if (!IsValidName(parsed.last())) return WithError(ERROR_INVALID_NAME, FALSE);
  if (IsWithin(folder, source)) return WithError(ERROR_SHARING_VIOLATION, FALSE);
  Entry* existing = Child(folder, parsed.last());
  if (existing && existing != source) {
    if (!replaces || existing->isFolder) return WithError(ERROR_ALREADY_EXISTS, FALSE);
    TakeOut(existing);
  }
  std::unique_ptr<Entry> taken = TakeOut(source);
  taken->name = parsed.last();
  taken->shortName.clear();
  taken->parent = folder;
  folder->children.push_back(std::move(taken));
  return TRUE;
}

BOOL WINAPI AnswerMoveFileW(LPCWSTR from, LPCWSTR to) {
  return Move(from, to, false);
}

BOOL WINAPI AnswerMoveFileExW(LPCWSTR from, LPCWSTR to, DWORD flags) {
  return Move(from, to, flags & MOVEFILE_REPLACE_EXISTING);
}

HANDLE OpenFile(const std::u16string& path) {
  if (Refuses()) return INVALID_HANDLE_VALUE;
  Entry* entry = Find(Parsed(path));
  if (!entry) return INVALID_HANDLE_VALUE;
  return entry->isFolder ? WithError(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE) : NewHandle(Kind::kHandle);
}

HANDLE WINAPI AnswerCreateFileA(LPCSTR path, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
  return OpenFile(WideOf(path));
}

DWORD WINAPI AnswerSetFilePointer(HANDLE file, LONG, PLONG, DWORD) {
  NeedHeld(Kind::kHandle, file);
  return MustFail() ? INVALID_SET_FILE_POINTER : 0;
}

BOOL WINAPI AnswerSetEndOfFile(HANDLE file) {
  NeedHeld(Kind::kHandle, file);
  return !MustFail();
}

BOOL WINAPI AnswerWriteFile(HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written, LPOVERLAPPED) {
  NeedHeld(Kind::kHandle, file);
  for (DWORD i = 0; i < size; ++i)
    REQUIRE(!static_cast<const uint8_t*>(bytes)[i], "a byte of the audit file is not zero");
  *written = size;
  return !MustFail();
}

BOOL WINAPI AnswerCloseHandle(HANDLE handle) {
  GaveBack(Kind::kHandle, handle);
  return TRUE;
}

HANDLE WINAPI AnswerCreateFileW(LPCWSTR path, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
  return OpenFile(std::u16string(ViewOf(path)));
}

DWORD WINAPI AnswerGetFullPathNameW(LPCWSTR path, DWORD capacity, LPWSTR buffer, LPWSTR*) {
  if (MustFail()) return WithError(ERROR_INVALID_NAME, 0u);
  std::u16string text(ViewOf(path));
  std::replace(text.begin(), text.end(), u'/', u'\\');
  if (text.empty()) return WithError(ERROR_INVALID_NAME, 0u);
  if (text.size() >= 2 && text[1] == u':') {
    if (text.size() == 2) {
      text += u"\\current";
    } else if (text[2] != u'\\') {
      text.insert(2, u"\\current\\");
    }
  } else if (text[0] != u'\\') {
    text.insert(0, u"C:\\current\\");
  } else if (text.size() < 2 || text[1] != u'\\') {
    text.insert(0, u"C:");
  }
  return DeliverPath(text, capacity, buffer);
}

DWORD WINAPI AnswerGetCurrentDirectoryW(DWORD capacity, LPWSTR buffer) {
  if (MustFail()) return WithError(ERROR_ACCESS_DENIED, 0u);
  return DeliverPath(u"C:\\current", capacity, buffer);
}

const AtBegin kDiskReset(ResetDisk);
const Answers kDisk{
    ANSWER(CloseHandle, AnswerCloseHandle),
    ANSWER(CopyFileW, AnswerCopyFileW),
    ANSWER(CreateDirectoryW, AnswerCreateDirectoryW),
    ANSWER(CreateFileA, AnswerCreateFileA),
    ANSWER(CreateFileW, AnswerCreateFileW),
    ANSWER(DeleteFileW, AnswerDeleteFileW),
    ANSWER(FindClose, AnswerFindClose),
    ANSWER(FindFirstFileW, AnswerFindFirstFileW),
    ANSWER(FindNextFileW, AnswerFindNextFileW),
    ANSWER(GetCurrentDirectoryW, AnswerGetCurrentDirectoryW),
    ANSWER(GetFileAttributesW, AnswerGetFileAttributesW),
    ANSWER(GetFullPathNameW, AnswerGetFullPathNameW),
    ANSWER(MoveFileExW, AnswerMoveFileExW),
    ANSWER(MoveFileW, AnswerMoveFileW),
    ANSWER(RemoveDirectoryW, AnswerRemoveDirectoryW),
    ANSWER(SetEndOfFile, AnswerSetEndOfFile),
    ANSWER(SetFilePointer, AnswerSetFilePointer),
    ANSWER(WriteFile, AnswerWriteFile),
};

void Collect(Entry* entry, std::vector<Entry*>* all) {
  all->push_back(entry);
  for (const auto& child : entry->children) Collect(child.get(), all);
}

Entry* AddTo(Entry* folder, std::u16string_view name, bool isFolder) {
  auto entry = std::make_unique<Entry>();
  entry->name = name;
  entry->parent = folder;
  entry->isFolder = isFolder;
  folder->children.push_back(std::move(entry));
  return folder->children.back().get();
}

constexpr struct {
  const char16_t* name;
  const char16_t* shortName;
} kNames[] = {
    {u"a", u""},
    {u"b", u""},
    {u"AB", u""},
    {u"a b", u"AB~1"},
    {u"long name.text", u"LONGNA~1.TEX"},
    {u"x.", u"X~1"},
    {u"x", u""},
    {u"x ", u"X~2"},
    {u"\u00FC", u""},
    {u".a", u"A~1"},
    {u"c.txt", u""},
    {u"folder", u""},
    {u"-m", u""},
    {u"\u4E2D.d", u""},
    {u"longer name", u"LONGER~1"},
    {u"\xD83D\xDE00", u"EMOJI~1"},
};

}  // namespace

void ResetDisk() {
  calls = 0;
  watcher = nullptr;
  searches.clear();
  root = std::make_unique<Entry>();
  root->isFolder = true;
  root->name = u"C:";
  AddTo(root.get(), u"current", true);
  away = std::make_unique<Entry>();
  away->isFolder = true;
  away->name = u"D:";
  AddTo(AddTo(away.get(), u"a", true), u"b", false);
  AddTo(away.get(), u"c.txt", false);
}

void ChooseDisk(Data* data) {
  constexpr uint32_t kMostEntries = 24;
  uint32_t content = 0;
  for (uint32_t count = data->Below(kMostEntries); count; --count) {
    std::vector<Entry*> all = AllEntries();
    Entry* folder = all[data->Below(static_cast<uint32_t>(all.size()))];
    const auto& name = data->OneOf(kNames);
    const uint8_t kind = data->Byte();
    Entry* target = all[data->Below(static_cast<uint32_t>(all.size()))];
    if (folder->isLink || !folder->isFolder || Child(folder, name.name)) continue;
    Entry* entry = AddTo(folder, name.name, kind & 1);
    if (!Child(folder, name.shortName)) entry->shortName = name.shortName;
    entry->content = ++content;
    entry->isLink = entry->isFolder && (kind & 2);
    if (!entry->isLink) continue;
    // Half of the links lead to the other drive, some to nowhere.
    if (kind & 4) entry->target = away.get();
    if ((kind & 12) == 8) entry->target = target;
  }
}

std::vector<Entry*> AllEntries() {
  std::vector<Entry*> all;
  Collect(root.get(), &all);
  return all;
}

std::vector<Entry*> AwayEntries() {
  std::vector<Entry*> all;
  Collect(away.get(), &all);
  return all;
}

std::u16string PathOf(const Entry& entry) {
  if (!entry.parent) return entry.name;
  return PathOf(*entry.parent) + u"\\" + entry.name;
}

Entry* EntryAt(const std::u16string& path) {
  return Find(Parsed(path));
}

std::vector<Entry*> EntriesAt(const std::u16string& path) {
  const Parsed parsed(path);
  if (!parsed.isValid() || parsed.endsWithBackslash() || parsed.isRoot()) return {};
  Entry* folder = FolderOf(parsed);
  if (!folder) return {};
  const std::u16string_view last = parsed.last();
  std::vector<Entry*> entries;
  if (last.find_first_of(u"*?") == std::u16string::npos) {
    if (Entry* entry = Child(folder, last)) entries.push_back(entry);
    return entries;
  }
  for (const auto& child : folder->children) {
    if (IsMatch(last, *child)) entries.push_back(child.get());
  }
  return entries;
}

Entry* FolderAt(const std::u16string& path) {
  const Parsed parsed(path);
  return parsed.isValid() && !parsed.isRoot() ? FolderOf(parsed) : nullptr;
}

Entry* ChildOf(Entry* folder, const std::u16string& name) {
  return Child(folder, name);
}

Entry* ContentsOf(Entry* entry) {
  return Contents(entry);
}

bool DiskIsWorn() {
  return calls > kMostCalls;
}

std::string Described(const Entry& entry) {
  std::string text = NarrowOf(PathOf(entry));
  if (entry.isLink) return text + " link";
  return entry.isFolder ? text + " folder" : text + " file " + std::to_string(entry.content);
}

std::u16string TakePath(Data* data) {
  std::vector<Entry*> all = AllEntries();
  const uint8_t kind = data->Byte();
  std::u16string path =
      kind & 1 ? PathOf(*all[data->Below(static_cast<uint32_t>(all.size()))]) : data->Wide(24);
  if (kind & 2) path += u"\\";
  if (kind & 4) path += data->OneOf(kNames).name;
  if (kind & 8) path += data->Flag() ? u"*" : u"?";
  if (kind & 16) path += data->Wide(12);
  if (kind & 32) std::replace(path.begin(), path.end(), u'\\', u'/');
  if ((kind & 0xC0) == 0xC0) path.insert(0, u"\\\\?\\");
  path.resize(std::min(path.find(u'\0'), path.size()));
  return path;
}

void WatchDisk(DiskWatcher watch) {
  watcher = std::move(watch);
}

bool LeadsThroughLink(const std::u16string& path, size_t from) {
  for (size_t at = from; (at = path.find_first_of(u"\\/", at)) != std::u16string::npos; ++at) {
    // A drive alone means its current folder, but not at the beginning of a longer path.
    if (at && path[at - 1] == u':') continue;
    Entry* entry = Find(Parsed(path.substr(0, at)));
    if (entry && entry->isLink) return true;
  }
  return false;
}
