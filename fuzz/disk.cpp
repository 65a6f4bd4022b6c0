#include "disk.h"

#include "image.h"
#include "require.h"
#include "world.h"

namespace {

// Longer paths are refused, like those of old programs on Windows.
constexpr size_t kLongestPath = 160;
// A run that needs more calls sees a disk that does not answer any more: links can make a tree endless.
constexpr uint32_t kMostCalls = 1500;

std::unique_ptr<Entry> root, away;
uint32_t calls;

struct Search {
  std::vector<WIN32_FIND_DATAW> found;
  size_t next = 0;
};
std::unordered_map<const void*, Search> searches;

char16_t Folded(char16_t unit) {
  if (unit >= u'a' && unit <= u'z') return static_cast<char16_t>(unit - 32);
  return unit >= 0xE0 && unit <= 0xFE && unit != 0xF7 ? static_cast<char16_t>(unit - 32) : unit;
}

bool IsSameName(std::u16string_view a, std::u16string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char16_t left, char16_t right) { return Folded(left) == Folded(right); });
}

bool Matches(std::u16string_view pattern, std::u16string_view name) {
  if (pattern == u"*.*") return true;
  if (pattern.empty()) return name.empty();
  if (pattern[0] == u'*')
    return Matches(pattern.substr(1), name) || (!name.empty() && Matches(pattern, name.substr(1)));
  if (name.empty()) return false;
  return (pattern[0] == u'?' || Folded(pattern[0]) == Folded(name[0])) &&
         Matches(pattern.substr(1), name.substr(1));
}

// A path, taken apart as Windows does.
struct Parsed {
  bool isValid = false;
  bool endsWithBackslash = false;
  std::vector<std::u16string> names;
};

Parsed Parse(std::u16string path) {
  Parsed parsed;
  constexpr std::u16string_view kUncut = u"\\\\?\\";
  const bool isCut = path.compare(0, kUncut.size(), kUncut) != 0;
  if (!isCut) path.erase(0, kUncut.size());
  std::replace(path.begin(), path.end(), u'/', u'\\');
  if (path.size() > kLongestPath) return parsed;
  if (path.size() >= 2 && path[1] == u':') {
    if (Folded(path[0]) != u'C') return parsed;
    path.erase(0, 2);
    if (path.empty() || path[0] != u'\\') path.insert(0, u"\\");
  } else if (path.empty() || path[0] != u'\\') {
    path.insert(0, u"\\current\\");
  } else if (path.size() > 1 && path[1] == u'\\') {
    return parsed;
  }
  parsed.isValid = true;
  parsed.endsWithBackslash = path.back() == u'\\';
  for (size_t at = 1; at <= path.size();) {
    size_t end = std::min(path.find(u'\\', at), path.size());
    std::u16string name = path.substr(at, end - at);
    at = end + 1;
    if (name == u"..") {
      if (!parsed.names.empty()) parsed.names.pop_back();
      continue;
    }
    while (isCut && !name.empty() && (name.back() == u'.' || name.back() == u' ')) name.pop_back();
    if (!name.empty()) parsed.names.push_back(std::move(name));
  }
  return parsed;
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
  for (size_t i = 0; folder && i + 1 < parsed.names.size(); ++i) {
    folder = Child(folder, parsed.names[i]);
    if (folder) folder = Contents(folder);
  }
  return folder;
}

// Returns the entry of a path, or null. Sets the error.
Entry* Find(const Parsed& parsed) {
  if (!parsed.isValid) return WithError(ERROR_PATH_NOT_FOUND, nullptr);
  if (parsed.names.empty()) return root.get();
  Entry* folder = FolderOf(parsed);
  if (!folder) return WithError(ERROR_PATH_NOT_FOUND, nullptr);
  Entry* entry = Child(folder, parsed.names.back());
  return entry ? entry : WithError(ERROR_FILE_NOT_FOUND, nullptr);
}

Parsed ParseText(LPCWSTR text) {
  return Parse(std::u16string(ViewOf(text)));
}

// Counts a call. Returns true, and sets the error, if it must fail.
bool Refuses() {
  ++calls;
  if (!MustFail() && calls <= kMostCalls) return false;
  world.error = ERROR_ACCESS_DENIED;
  return true;
}

// Adds an entry; null if the name is barred or exists, and then sets the error.
Entry* Add(const Parsed& parsed, std::unique_ptr<Entry> entry) {
  if (!parsed.isValid || parsed.names.empty()) return WithError(ERROR_PATH_NOT_FOUND, nullptr);
  Entry* folder = FolderOf(parsed);
  if (!folder) return WithError(ERROR_PATH_NOT_FOUND, nullptr);
  const std::u16string& name = parsed.names.back();
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

WIN32_FIND_DATAW Record(const Entry& entry, std::u16string_view name) {
  WIN32_FIND_DATAW record;
  constexpr int kRubbish = 0xA5;
  memset(&record, kRubbish, sizeof record);
  record.dwFileAttributes = Attributes(entry);
  record.dwReserved0 = entry.isLink ? IO_REPARSE_TAG_MOUNT_POINT : 0;
  memcpy(record.cFileName, name.data(), name.size() * sizeof(wchar_t));
  record.cFileName[name.size()] = 0;
  memcpy(record.cAlternateFileName, entry.shortName.data(), entry.shortName.size() * sizeof(wchar_t));
  record.cAlternateFileName[entry.shortName.size()] = 0;
  return record;
}

HANDLE WINAPI AnswerFindFirstFileW(LPCWSTR text, LPWIN32_FIND_DATAW found) {
  if (Refuses()) return INVALID_HANDLE_VALUE;
  Parsed parsed = ParseText(text);
  if (!parsed.isValid) return WithError(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
  if (parsed.endsWithBackslash || parsed.names.empty())
    return WithError(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
  Search search;
  const std::u16string& last = parsed.names.back();
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
      if (Matches(last, child->name) || (!child->shortName.empty() && Matches(last, child->shortName))) {
        search.found.push_back(Record(*child, child->name));
      }
    }
  }
  if (search.found.empty()) return WithError(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
  *found = search.found[search.next++];
  HANDLE handle = NewHandle(Kind::kSearch);
  searches[handle] = std::move(search);
  return handle;
}

BOOL WINAPI AnswerFindNextFileW(HANDLE handle, LPWIN32_FIND_DATAW found) {
  NeedHeld(Kind::kSearch, handle);
  if (Refuses()) return FALSE;
  Search& search = searches[handle];
  if (search.next == search.found.size()) return WithError(ERROR_NO_MORE_FILES, FALSE);
  *found = search.found[search.next++];
  return TRUE;
}

BOOL WINAPI AnswerFindClose(HANDLE handle) {
  GaveBack(Kind::kSearch, handle);
  searches.erase(handle);
  return TRUE;
}

DWORD WINAPI AnswerGetFileAttributesW(LPCWSTR path) {
  if (Refuses()) return INVALID_FILE_ATTRIBUTES;
  Entry* entry = Find(ParseText(path));
  return entry ? Attributes(*entry) : INVALID_FILE_ATTRIBUTES;
}

BOOL WINAPI AnswerCreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES) {
  if (Refuses()) return FALSE;
  auto folder = std::make_unique<Entry>();
  folder->isFolder = true;
  return Add(ParseText(path), std::move(folder)) != nullptr;
}

BOOL WINAPI AnswerRemoveDirectoryW(LPCWSTR path) {
  if (Refuses()) return FALSE;
  Entry* entry = Find(ParseText(path));
  if (!entry) return FALSE;
  if (!entry->isFolder || !entry->parent) return WithError(ERROR_DIRECTORY, FALSE);
  if (!entry->children.empty()) return WithError(ERROR_DIR_NOT_EMPTY, FALSE);
  std::unique_ptr<Entry> gone = TakeOut(entry);
  ForgetTarget(gone.get());
  return TRUE;
}

BOOL WINAPI AnswerDeleteFileW(LPCWSTR path) {
  if (Refuses()) return FALSE;
  Entry* entry = Find(ParseText(path));
  if (!entry) return FALSE;
  if (entry->isFolder) return WithError(ERROR_ACCESS_DENIED, FALSE);
  TakeOut(entry);
  return TRUE;
}

BOOL WINAPI AnswerCopyFileW(LPCWSTR from, LPCWSTR to, BOOL refusesExisting) {
  if (Refuses()) return FALSE;
  Entry* source = Find(ParseText(from));
  if (!source) return FALSE;
  if (source->isFolder) return WithError(ERROR_ACCESS_DENIED, FALSE);
  Parsed parsed = ParseText(to);
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
  Entry* source = Find(ParseText(from));
  if (!source) return FALSE;
  if (!source->parent) return WithError(ERROR_ACCESS_DENIED, FALSE);
  Parsed parsed = ParseText(to);
  if (!parsed.isValid || parsed.names.empty()) return WithError(ERROR_PATH_NOT_FOUND, FALSE);
  Entry* folder = FolderOf(parsed);
  if (!folder) return WithError(ERROR_PATH_NOT_FOUND, FALSE);
  if (!IsValidName(parsed.names.back())) return WithError(ERROR_INVALID_NAME, FALSE);
  if (IsWithin(folder, source)) return WithError(ERROR_SHARING_VIOLATION, FALSE);
  Entry* existing = Child(folder, parsed.names.back());
  if (existing && existing != source) {
    if (!replaces || existing->isFolder) return WithError(ERROR_ALREADY_EXISTS, FALSE);
    TakeOut(existing);
  }
  std::unique_ptr<Entry> taken = TakeOut(source);
  taken->name = parsed.names.back();
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
  Entry* entry = Find(Parse(path));
  if (!entry) return INVALID_HANDLE_VALUE;
  return entry->isFolder ? WithError(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE) : NewHandle(Kind::kFile);
}

HANDLE WINAPI AnswerCreateFileA(LPCSTR path, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
  return OpenFile(WideOf(path));
}

DWORD WINAPI AnswerSetFilePointer(HANDLE file, LONG, PLONG, DWORD) {
  NeedHeld(Kind::kFile, file);
  return MustFail() ? INVALID_SET_FILE_POINTER : 0;
}

BOOL WINAPI AnswerSetEndOfFile(HANDLE file) {
  NeedHeld(Kind::kFile, file);
  return !MustFail();
}

BOOL WINAPI AnswerWriteFile(HANDLE file, LPCVOID bytes, DWORD size, LPDWORD written, LPOVERLAPPED) {
  NeedHeld(Kind::kFile, file);
  for (DWORD i = 0; i < size; ++i)
    REQUIRE(!static_cast<const uint8_t*>(bytes)[i], "a byte of the audit file is not zero");
  *written = size;
  return !MustFail();
}

BOOL WINAPI AnswerCloseHandle(HANDLE handle) {
  GaveBack(Kind::kFile, handle);
  return TRUE;
}

HANDLE WINAPI AnswerCreateFileW(LPCWSTR path, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
  return OpenFile(std::u16string(ViewOf(path)));
}

// Copies `text` with the rules of the functions that return a folder: the length, or the size that is needed.
DWORD DeliverPath(const std::u16string& text, DWORD capacity, LPWSTR buffer) {
  if (text.size() >= capacity) return static_cast<DWORD>(text.size()) + 1;
  memcpy(buffer, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  return static_cast<DWORD>(text.size());
}

DWORD WINAPI AnswerGetFullPathNameW(LPCWSTR path, DWORD capacity, LPWSTR buffer, LPWSTR*) {
  if (MustFail()) return WithError(ERROR_INVALID_NAME, 0u);
  std::u16string text(ViewOf(path));
  std::replace(text.begin(), text.end(), u'/', u'\\');
  if (text.empty()) return WithError(ERROR_INVALID_NAME, 0u);
  if (text.size() >= 2 && text[1] == u':') {
    if (text.size() == 2 || text[2] != u'\\') text.insert(2, u"\\");
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

std::u16string PathOf(const Entry& entry) {
  if (!entry.parent) return entry.name;
  return PathOf(*entry.parent) + u"\\" + entry.name;
}

}  // namespace

void ResetDisk() {
  calls = 0;
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

bool LeadsThroughLink(const std::u16string& path) {
  for (size_t at = 0; (at = path.find_first_of(u"\\/", at)) != std::u16string::npos; ++at) {
    Entry* entry = Find(Parse(path.substr(0, at)));
    if (entry && entry->isLink) return true;
  }
  return false;
}
