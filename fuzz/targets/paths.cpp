// Operations on paths, with failing allocations, and with records that are damaged or of another kind. The
// nodes of every path have the form that they must have, all operations give the text that the nodes say, and
// a name that is joined and taken away again leaves the path that was there.

#include "disk.h"
#include "guarded.h"
#include "image.h"
#include "require.h"
#include "target.h"
#include "world.h"

#include "paths/path.h"
#include "paths/path_query.h"

namespace {

OPERATION(PathMake);
OPERATION(PathJoinWide);
OPERATION(PathFromWide);
OPERATION(PathFromUtf8);
OPERATION(PathFromWrittenWide);
OPERATION(PathFromWrittenUtf8);
OPERATION(PathJoin);
OPERATION(PathFolder);
OPERATION(PathReplaceLeaf);
OPERATION(PathAppendLnk);
OPERATION(PathCommonAncestor);
OPERATION(PathFlatten);
OPERATION(PathToWide);
OPERATION(PathCopyToBuffer);
OPERATION(RecordBufferFree);
constinit Operation<void(void*)> callHeapFreeSafe("HeapFreeSafe");
constinit Operation<PathObject*(Object*)> callDirWalkerNext("DirWalkerNext");

// The operations of an object, which have the calling convention of the image.
template <typename Result, typename... Arguments>
Result CallOperation(Result (*operation)(Arguments...), std::type_identity_t<Arguments>... arguments) {
  return reinterpret_cast<ImageFunction<Result(Arguments...)>>(operation)(arguments...);
}

Object* Retained(Object* object) {
  return CallOperation(object->ops.Retain, object);
}

void Release(Object* object) {
  if (object) CallOperation(object->ops.Release, object);
}

bool IsDriveLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Returns the text of a path: those of its nodes, with one backslash between two of them.
std::string TextOf(const PathObject* path) {
  if (!path) return {};
  std::string text = TextOf(path->parent);
  const char* own = path->text;
  if (!text.empty() && text.back() == '\\' && *own == '\\') ++own;
  return text + own;
}

std::string WithoutBackslash(std::string text) {
  if (!text.empty() && text.back() == '\\') text.pop_back();
  return text;
}

// Returns the wide text of a path: a bare drive gets a backslash.
std::u16string WideTextOf(const PathObject* path) {
  const std::string text = TextOf(path);
  const bool isDrive = text.size() == 2 && IsDriveLetter(text[0]) && text[1] == ':';
  return WideOf(isDrive ? text + "\\" : text);
}

// True if `name` is one that joining neither trims nor divides.
bool IsPlainName(const std::string& name) {
  return !name.empty() && name.find('\\') == std::string::npos && name != "." && name != "..";
}

bool IsOnDisk(const std::string& name) {
  const std::vector<Entry*> all = AllEntries();
  return std::any_of(all.begin(), all.end(),
                     [&](const Entry* entry) { return NarrowOf(entry->name) == name; });
}

// Returns `text` with small letters of ASCII as capital ones.
std::string Folded(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  }
  return text;
}

// The paths of a run; each holds one reference.
class Paths {
 public:
  explicit Paths(Data* data) : data_(data) {}
  void Run();

 private:
  static constexpr size_t kPlaces = 6;
  PathObject*& Any() { return paths_[data_->Below(kPlaces)]; }
  void Put(PathObject* path);
  void CheckText(PathObject* path);
  void CheckJoined(const std::string& folder, const std::string& name, PathObject* joined);
  void Join();
  void ReplaceLeaf();
  void AppendLnk();
  void CommonAncestor();
  void Flatten();
  void FromEntry();
  void Compare();
  void StoreAndRead();
  void ReadDamaged();
  void Walk();
  void CopyToBuffer();

  Data* data_;
  PathObject* paths_[kPlaces] = {};
};

void Paths::Put(PathObject* path) {
  if (path) CheckText(path);
  PathObject*& place = Any();
  Release(place);
  place = path;
}

// The nodes of a path begin with a backslash, but for a drive at its start; the text of the path is that of
// its nodes, and as long as its measure.
void Paths::CheckText(PathObject* path) {
  REQUIRE(path->typeTag == kPathTag, "a path has the tag %x", path->typeTag);
  for (const PathObject* node = path; node; node = node->parent) {
    REQUIRE(node->refCount >= 1, "a node has %d references", node->refCount);
    REQUIRE(node->length >= 0, "a node has the length %d", node->length);
    REQUIRE(node->text[node->length] == '\0', "a node's text is not terminated");
    REQUIRE(strlen(node->text) == static_cast<size_t>(node->length), "a node's text of %d bytes ends early",
            node->length);
    const bool isDrive = !node->parent && IsDriveLetter(node->text[0]) && node->text[1] == ':' &&
                         (node->text[2] == '\\' || node->length == 2);
    REQUIRE(isDrive || node->text[0] == '\\', "a node's text is \"%s\"", node->text);
  }
  const std::string expected = TextOf(path);
  const unsigned measured = CallOperation(path->ops.CopyText, path, nullptr, 0, -1, nullptr, 'O');
  if (measured + 1 >= kMostGuarded) return;
  char* text = static_cast<char*>(GuardedBuffer(measured));
  const unsigned written = CallOperation(path->ops.CopyText, path, text, measured, -1, nullptr, 'O');
  REQUIRE(HasFailed() || written == measured, "a path of %u bytes has %u", measured, written);
  REQUIRE(HasFailed() || (written == expected.size() && !memcmp(text, expected.data(), written)),
          "a path is copied as \"%.*s\", not as \"%s\"", static_cast<int>(written), text, expected.c_str());
  const unsigned room = measured / 2;
  char* part = static_cast<char*>(GuardedBuffer(room));
  const unsigned count = CallOperation(path->ops.CopyText, path, part, room, -1, nullptr, 'O');
  REQUIRE(count <= room && (HasFailed() || (count == room && !memcmp(part, text, count))),
          "a cut path is another one");
}

// `joined` is what `name` becomes on `folder`, the text of a path: the folder of it is that path again.
void Paths::CheckJoined(const std::string& folder, const std::string& name, PathObject* joined) {
  if (!joined || folder.empty() || !IsPlainName(name)) return;
  const std::string text = TextOf(joined);
  const std::string before = WithoutBackslash(folder);
  const size_t leaf = text.rfind('\\');
  REQUIRE(leaf != std::string::npos && text.substr(0, leaf) == before, "\"%s\" and \"%s\" become \"%s\"",
          folder.c_str(), name.c_str(), text.c_str());
  // A name that is on the disk is spelled as it is there.
  const std::string spelled = text.substr(leaf + 1);
  REQUIRE(spelled == name || IsOnDisk(spelled), "the name \"%s\" becomes \"%s\"", name.c_str(), text.c_str());
  PathObject* again = callPathFolder(joined);
  REQUIRE(again || HasFailed() || before.empty(), "\"%s\" has no folder", text.c_str());
  if (!again) return;
  REQUIRE(WithoutBackslash(TextOf(again)) == before, "the folder of \"%s\" is \"%s\"", text.c_str(),
          TextOf(again).c_str());
  Release(again);
}

void Paths::Join() {
  PathObject* folder = Any();
  const std::string text = TextOf(folder);
  const std::string name = data_->Text(20).c_str();
  PathObject* joined = callPathJoin(folder, GuardedText(name));
  CheckJoined(text, name, joined);
  Put(joined);
}

void Paths::ReplaceLeaf() {
  PathObject* path = Any();
  const std::string name = data_->Text(20).c_str();
  PathObject* folder = callPathFolder(path);
  const std::string text = TextOf(folder);
  Release(folder);
  PathObject* replaced = callPathReplaceLeaf(path, GuardedText(name));
  if (!HasFailed()) CheckJoined(text, name, replaced);
  Put(replaced);
}

void Paths::AppendLnk() {
  PathObject* path = Any();
  PathObject* link = callPathAppendLnk(path);
  if (!link) return;
  REQUIRE(TextOf(link) == TextOf(path) + ".lnk", "the link to \"%s\" is \"%s\"", TextOf(path).c_str(),
          TextOf(link).c_str());
  Release(link);
}

void Paths::CommonAncestor() {
  PathObject* a = Any();
  PathObject* b = Any();
  PathObject* common = callPathCommonAncestor(a, b);
  if (common) {
    const std::string start = Folded(WithoutBackslash(TextOf(common)));
    for (const PathObject* path : {a, b}) {
      const std::string text = Folded(TextOf(path));
      const bool isWhole = text.size() <= start.size() || text[start.size()] == '\\';
      REQUIRE(text.compare(0, start.size(), start) == 0 && isWhole, "\"%s\" does not begin with \"%s\"",
              text.c_str(), start.c_str());
    }
  }
  Put(common);
}

void Paths::Flatten() {
  PathObject* path = Any();
  PathObject* flat = callPathFlatten(path);
  if (flat) {
    REQUIRE(!flat->parent && TextOf(path) == flat->text, "\"%s\" is flattened to \"%s\"",
            TextOf(path).c_str(), flat->text);
    const int order = CallOperation(path->ops.Compare, path, flat);
    REQUIRE(HasFailed() || order == 0, "a path compares with itself in one node as %d", order);
  }
  Put(flat);
}

// A path of an entry with long names is used as it is.
void Paths::FromEntry() {
  const std::vector<Entry*> all = AllEntries();
  const Entry* entry = all[data_->Below(static_cast<uint32_t>(all.size()))];
  PathObject* path = callPathFromWide(GuardedWide(PathOf(*entry)));
  // Windows drops the end of some names.
  bool isCut = !entry->parent;
  for (const Entry* each = entry; each; each = each->parent) {
    isCut = isCut || each->name.back() == u'.' || each->name.back() == u' ';
  }
  if (path && !isCut && !HasFailed()) {
    REQUIRE(WideOf(TextOf(path)) == PathOf(*entry), "the path of an entry, \"%s\", becomes \"%s\"",
            NarrowOf(PathOf(*entry)).c_str(), TextOf(path).c_str());
  }
  Put(path);
}

void Paths::Compare() {
  PathObject* a = Any();
  PathObject* b = Any();
  if (!a || !b) return;
  const int order = CallOperation(a->ops.Compare, a, b);
  const int reverse = CallOperation(b->ops.Compare, b, a);
  REQUIRE(order >= -1 && order <= 1, "two paths compare as %d", order);
  REQUIRE(HasFailed() || order == -reverse, "two paths compare as %d and as %d", order, reverse);
}

// What is stored is read back as an equal path.
void Paths::StoreAndRead() {
  PathObject* path = Any();
  if (!path) return;
  RecordBuffer buffer{};
  const DWORD identifier = data_->Take<DWORD>();
  for (uint32_t count = 1 + data_->Below(4); count; --count) {
    const size_t before = buffer.size;
    const UINT_PTR size = CallOperation(path->ops.Query, path, kQueryStore, identifier, &buffer, nullptr, 0);
    REQUIRE(buffer.size == before + size && size % 4 == 0, "an entry of %zu bytes adds %zu",
            static_cast<size_t>(size), buffer.size - before);
  }
  while (buffer.position < buffer.size) {
    const size_t before = buffer.position;
    auto* read = reinterpret_cast<PathObject*>(
        CallOperation(path->ops.Query, path, kQueryRead, identifier, &buffer, nullptr, 0));
    if (!read) {
      REQUIRE(HasFailed() && buffer.position == before, "an entry that was stored cannot be read");
      break;
    }
    const int order = CallOperation(path->ops.Compare, path, read);
    REQUIRE(HasFailed() || order == 0, "a path compares with what it is stored as, \"%s\", as %d", read->text,
            order);
    Release(read);
  }
  callRecordBufferFree(&buffer);
  REQUIRE(!buffer.bytes && !buffer.size && !buffer.capacity && !buffer.position,
          "a freed buffer is not empty");
}

// Entries of any form: nothing after them is read, and what is not whole leaves the position.
void Paths::ReadDamaged() {
  PathObject* path = Any();
  if (!path) return;
  std::string bytes;
  for (uint32_t count = data_->Below(4); count; --count) {
    std::string text = data_->Text(24);
    const uint8_t damage = data_->Byte();
    DWORD identifier = data_->Byte() % 3u, tag = kPathEntryTag;
    DWORD length = __builtin_bswap32(static_cast<DWORD>(text.size()));
    if (damage & 1) tag = data_->Take<DWORD>();
    if (damage & 2) length = data_->Take<DWORD>();
    bytes.append(reinterpret_cast<const char*>(&identifier), sizeof identifier);
    bytes.append(reinterpret_cast<const char*>(&tag), sizeof tag);
    bytes.append(reinterpret_cast<const char*>(&length), sizeof length);
    bytes += text;
    if (!(damage & 4)) bytes.append((4 - text.size() % 4) % 4, '\0');
  }
  const size_t cut = data_->Byte() % 16u;
  bytes.resize(bytes.size() - std::min(cut, bytes.size()));
  RecordBuffer buffer{GuardedBytes(bytes), bytes.size(), bytes.size(), 0};
  for (;;) {
    const size_t before = buffer.position;
    auto* read = reinterpret_cast<PathObject*>(
        CallOperation(path->ops.Query, path, kQueryRead, data_->Byte() % 3u, &buffer, nullptr, 0));
    if (!read) {
      REQUIRE(buffer.position == before, "what is no entry moves the position");
      break;
    }
    REQUIRE(buffer.position > before && buffer.position <= buffer.size, "an entry ends at %zu of %zu",
            buffer.position, buffer.size);
    // The text of an entry may have any bytes, so it is not a path that other operations take.
    Release(read);
  }
}

void Paths::Walk() {
  PathObject* path = Any();
  if (!path) return;
  auto create = reinterpret_cast<ImageFunction<Object*(PathObject*)>>(
      CallOperation(path->ops.Query, path, kQueryWalker, kWalkerConstructor, nullptr, nullptr, 0));
  if (!create) return;
  Object* walker = create(path);
  if (!walker) return;
  // The entries of a walk need many places.
  for (uint32_t count = 0; count < 200; ++count) {
    PathObject* entry = callDirWalkerNext(walker);
    if (!entry) break;
    Release(entry);
  }
  Release(walker);
}

void Paths::CopyToBuffer() {
  const PathObject* path = Any();
  const unsigned capacity = data_->Below(40);
  auto* buffer = static_cast<wchar_t*>(GuardedBuffer(capacity * sizeof(wchar_t)));
  const unsigned count = callPathCopyToBuffer(const_cast<PathObject*>(path), buffer, capacity);
  REQUIRE(capacity == 0 ? count == 0 : count < capacity, "%u characters are copied into %u", count, capacity);
  if (capacity == 0) return;
  REQUIRE(buffer[count] == 0, "the text of a path is not terminated");
  const std::u16string text = WideTextOf(path).substr(0, capacity - 1);
  REQUIRE(HasFailed() || ViewOf(buffer) == text, "a path is copied as \"%s\", not as \"%s\"",
          NarrowOf(ViewOf(buffer)).c_str(), NarrowOf(text).c_str());
}

void Paths::Run() {
  constexpr uint32_t kMostSteps = 10;
  for (uint32_t count = 1 + data_->Below(kMostSteps); count; --count) {
    const uint32_t step = data_->Below(21);
    switch (step) {
      case 0: {
        std::string text = data_->Text(40);
        const bool isTerminated = data_->Flag();
        const int length = isTerminated ? -1 : static_cast<int>(text.size());
        PathObject* parent = Any();
        // A text of a given length has no zero byte, as all callers' texts.
        text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
        Put(callPathMake(parent, isTerminated ? GuardedText(text) : GuardedBytes(text),
                         isTerminated ? length : static_cast<int>(text.size())));
        break;
      }
      case 1: {
        std::u16string text = data_->Wide(40);
        text.erase(std::remove(text.begin(), text.end(), u'\0'), text.end());
        const bool isTerminated = data_->Flag();
        Put(callPathJoinWide(Any(), isTerminated ? GuardedWide(text) : GuardedUnits(text),
                             isTerminated ? -1 : static_cast<int>(text.size())));
        break;
      }
      case 2:
        FromEntry();
        break;
      case 3:
        Put(callPathFromWide(GuardedWide(TakePath(data_))));
        break;
      case 4:
        Put(callPathFromUtf8(GuardedText(NarrowOf(TakePath(data_)))));
        break;
      case 5:
        Put(callPathFromWrittenWide(GuardedWide(TakePath(data_))));
        break;
      case 6:
        Put(callPathFromWrittenUtf8(GuardedText(data_->Text(40).c_str())));
        break;
      case 7:
      case 8:
        Join();
        break;
      case 9:
        Put(callPathFolder(Any()));
        break;
      case 10:
        ReplaceLeaf();
        break;
      case 11:
        AppendLnk();
        break;
      case 12:
        CommonAncestor();
        break;
      case 13:
        Flatten();
        break;
      case 14: {
        PathObject* path = Any();
        if (wchar_t* text = callPathToWide(path)) {
          REQUIRE(ViewOf(text) == WideTextOf(path), "the wide text of \"%s\" is \"%s\"", TextOf(path).c_str(),
                  NarrowOf(ViewOf(text)).c_str());
          callHeapFreeSafe(text);
        }
        break;
      }
      case 15:
        CopyToBuffer();
        break;
      case 16:
        Compare();
        break;
      case 17:
        StoreAndRead();
        break;
      case 18:
        ReadDamaged();
        break;
      case 19:
        Walk();
        break;
      default:
        if (PathObject* path = Any()) Put(static_cast<PathObject*>(Retained(path)));
        break;
    }
  }
  for (PathObject* path : paths_) Release(path);
}

}  // namespace

void RunPaths(Data* data) {
  TakeFailure(data);
  ChooseDisk(data);
  Paths(data).Run();
}
